#pragma once

// One yes/no question put to the operator, e.g. whether the button LEDs lit
// up as expected; the answer is the verdict.

#include <QString>

#include "app/UnitTest.h"

class YesNoTest : public UnitTest {
public:
    YesNoTest(QString testName, QString description, QString promptText);

    int run(FrontPanelTestManager& manager) override;

    QString const& description() const { return m_description; }
    QString const& promptText() const { return m_prompt; }

private:
    QString m_description;
    QString m_prompt;
};

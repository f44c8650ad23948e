// The fixed test plan: order, names, button labels and indexes, and the
// audio tests replaced by FailTests without the self-test image.

#include <gtest/gtest.h>

#include "app/TestPlan.h"
#include "app/plan/AudioOutputTest.h"
#include "app/plan/ButtonTest.h"
#include "app/plan/HeadphoneJackTest.h"
#include "app/plan/ShaftEncTest.h"
#include "app/plan/YesNoTest.h"
#include "app/testing/ManagerRig.h"

using fpt::testing::ManagerRig;

TEST(TestPlan, OrderAndContents) {
    for (bool image : {true, false}) {
        ManagerRig rig(image);
        addFrontPanelTestPlan(rig.mgr(), image);
        auto const& tests = rig.mgr().unitTests();
        ASSERT_EQ(tests.size(), 5u);
        for (auto const& t : tests) {
            EXPECT_EQ(t->state, UnitTest::NotRun);
            EXPECT_EQ(t->result, QStringLiteral("Test Not Run"));
        }
        EXPECT_NE(dynamic_cast<ShaftEncTest*>(tests[0].get()), nullptr);
        EXPECT_EQ(tests[0]->name, QString());

        auto const* group = dynamic_cast<UnitTestGroup*>(tests[1].get());
        ASSERT_NE(group, nullptr);
        EXPECT_EQ(group->name, QStringLiteral("Button Tests"));
        char const* const labels[] = {"Calvento", "F1", "F2",    "F3", "F4",           "F5",
                                      "F6",       "F7", "F8",    "F9", "F10",          "Down",
                                      "Left",     "Up", "Right", "OK", "Shaft Encoder"};
        ASSERT_EQ(group->unitTests().size(), 18u);
        for (uint32_t i = 0; i < 17; ++i) {
            auto const* b = dynamic_cast<ButtonTest*>(group->unitTests()[i].get());
            ASSERT_NE(b, nullptr) << i;
            EXPECT_EQ(b->label().toStdString(), labels[i]);
            EXPECT_EQ(b->buttonIndex(), i);
        }
        auto const* confirm = dynamic_cast<YesNoTest*>(group->unitTests()[17].get());
        ASSERT_NE(confirm, nullptr);
        EXPECT_EQ(confirm->name, QStringLiteral("Confirm the LED behaviour"));
        EXPECT_EQ(confirm->description().toStdString(), "1. Did the LED's light up as expected?");
        EXPECT_EQ(confirm->promptText().toStdString(), "(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: ");

        EXPECT_NE(dynamic_cast<HeadphoneJackTest*>(tests[2].get()), nullptr);
        EXPECT_EQ(tests[2]->name, QStringLiteral("Headphone Jack Detection Test"));

        EXPECT_EQ(tests[3]->name, QStringLiteral("Speaker Output Test"));
        EXPECT_EQ(tests[4]->name, QStringLiteral("Headphone Output Test"));
        // Speaker alone (route bit 1), then headphones alone (bit 0).
        struct Audio {
            int32_t route;
            char const* description;
        } const audio[] = {
            {2, "   This test is to ensure that audio can be heard from the front panel\n"
                "   in isolation\n\n"
                "1. The Test Application has enabled the *External Speaker* Only\n"
                "2. Turn the Volume up using the Shaft Encoder"},
            {1, "   This test is to ensure that audio can be heard from the headphones\n"
                "   in isolation\n\n"
                "1. The Test Application has enabled Enable the *Headphones* Only\n"
                "2. Turn the Volume up using the Shaft Encoder"},
        };
        for (int i : {3, 4}) {
            auto const* audioTest = dynamic_cast<AudioOutputTest*>(tests[i].get());
            bool const isFail = dynamic_cast<FailTest*>(tests[i].get()) != nullptr;
            EXPECT_EQ(audioTest != nullptr, image) << i;
            EXPECT_EQ(isFail, !image) << i;
            if (audioTest != nullptr) {
                EXPECT_EQ(audioTest->route(), audio[i - 3].route) << i;
                EXPECT_EQ(audioTest->description().toStdString(), audio[i - 3].description) << i;
            }
        }
    }
}

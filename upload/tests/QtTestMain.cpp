// GoogleTest entry for tests that need Qt's networking: QNetworkAccessManager
// wants a QCoreApplication in the process, although no test runs its loop.

#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

#include "common/TestEnvironment.h"

#include <gtest/gtest.h>

#ifdef TIDEWAVE_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

#include <QFile>

#include <csignal>

int main(int argc, char **argv)
{
    // A test that writes to a closed pipe must fail, not kill the runner.
    std::signal(SIGPIPE, SIG_IGN);
    TestEnvironment::isolateUserFolders();
    // No test may reach the machine's real system bus: publishing there would
    // advertise test services on the real network. The discovery tests start
    // a confined bus of their own at this address.
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", QByteArray("unix:path=") + QFile::encodeName(TestEnvironment::systemBusPath()));
#ifdef TIDEWAVE_TEST_GUI
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
#endif
    TestApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

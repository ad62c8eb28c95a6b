// Test entry point: GoogleTest inside a Qt application object, so tests can run the event
// loop (QSignalSpy, QTest::qWaitFor, queued calls to the main thread).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef SAYVO_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

int main(int argc, char **argv)
{
#ifdef SAYVO_TEST_GUI
    // Widgets are drawn offscreen unless a test run points Qt at a real X server.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
#endif
    ::testing::InitGoogleMock(&argc, argv);
    TestApplication app(argc, argv);
    return RUN_ALL_TESTS();
}

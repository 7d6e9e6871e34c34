// One main() for every Qt test executable: a QApplication exists before any
// test runs, so widgets, timers, futures and deferred deletion all work.
#include <QApplication>
#include <QByteArray>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Test discovery and plain ctest runs have no display: widgets go to the
    // offscreen platform unless the caller chose one (Xvfb for web pages).
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        qputenv("QT_QUICK_BACKEND", "software");
    // The web engine refuses to start as root with its sandbox on.
    if (qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    // Web views and QUiLoader (which loads the web view's designer plug-in)
    // need a shared GL context set before the application object exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}

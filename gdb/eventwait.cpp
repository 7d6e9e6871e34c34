#include "eventwait.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

namespace arraylens::gdb {

bool waitWithEventLoop(const std::function<bool()>& done, int timeoutMs) {
    // The answer is that of the last look: a condition that changes as it is
    // asked (one that samples the screen now and then) is not asked again.
    bool met = done();
    if (met)
        return true;
    QEventLoop loop;
    QElapsedTimer clock;
    clock.start();
    QTimer check;
    check.setInterval(1);
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        met = done();
        if (met || clock.elapsed() > timeoutMs)
            loop.quit();
    });
    check.start();
    loop.exec();
    return met;
}

} // namespace arraylens::gdb

// The service's end of a trace handled inside gdb (python/arraylens_trace.py):
// a local socket that gdb's Python connects to, and a thread that reads one
// line per breakpoint hit (the frame, and the describer's line for the
// traced expression) and answers "go" (the program goes on without a stop
// being reported) or "stay" (an ordinary stop). The handler runs on that
// thread while the program stands still at the hit.
#pragma once

#include "arrayresolver.h"

#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

class QTemporaryDir;

namespace arraylens::gdb {

class TraceHook {
public:
    struct Hit {
        FrameInfo frame;
        // The describer's console line for the traced expression.
        QString describe;
    };
    // True: the program goes on.
    using Handler = std::function<bool(const Hit&)>;

    explicit TraceHook(Handler handler);
    ~TraceHook();
    TraceHook(const TraceHook&) = delete;
    TraceHook& operator=(const TraceHook&) = delete;

    // Makes the socket and starts the thread; false with `error` filled.
    bool listen(QString* error);
    // The console command that connects gdb and sets the breakpoints'
    // condition for `expression`.
    QString installCommand(const QString& expression) const;
    static QString uninstallCommand();
    // Ends the thread; a hit being handled, and every later one, stops.
    void close();

private:
    void serve();

    Handler handler_;
    std::unique_ptr<QTemporaryDir> dir_;
    QString path_;
    int listenFd_ = -1;
    std::atomic<int> connectionFd_{-1};
    std::atomic<bool> closing_{false};
    std::thread thread_;
};

} // namespace arraylens::gdb

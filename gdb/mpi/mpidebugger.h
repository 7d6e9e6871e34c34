// The debugger service over the ranks of an MPI job, for a window that
// shows one of them at a time: the process selection is one rank or a set
// of ranks. Requests cover the ranks of the selection as one array (with
// the process dimension); expressions are evaluated, and threads, frames
// and locals come from the focus rank, the first of the selection. The run
// controls act on every rank of the job.
//
// Each rank has a GdbDebugger of its own; only the focus rank's events
// reach the listeners, and while the ranks run together its stop is held
// back until every rank has stopped, so that the view hears of one stop of
// the whole job.
#pragma once

#include "gdbdebugger.h"
#include "mpijob.h"

#include "host/hvdebugger.h"
#include "host/nqcore.h"

#include <QPointer>
#include <QVector>

#include <QHash>

#include <memory>
#include <mutex>
#include <vector>

namespace arraylens::gdb {

class MpiDebugger : public IHVDebugger {
    Q_OBJECT
public:
    // `job` (not owned) must be open and must outlive this object.
    explicit MpiDebugger(MpiJob* job, QObject* parent = nullptr);
    ~MpiDebugger() override;

    QFuture<QSharedPointer<QObject>> sendRequest(HVDWPRequest request) override;
    IHVExpression* createExpression(const QString& text) override;
    IHVExpression* cloneExpression(IHVExpression* expression) override;

    // The contexts follow the focus rank.
    void setContextManager(NQ::IContextManager* contexts);

    // The ranks that requests cover, in order, each once and within the
    // job; false (and nothing changes) otherwise.
    bool select(const QVector<int>& ranks);
    const QVector<int>& selection() const { return selection_; }
    bool allRanks() const { return selection_.size() == job_->size(); }
    int focusRank() const { return selection_.isEmpty() ? 0 : selection_.front(); }
    GdbDebugger* focusDebugger() const { return rankDebugger(focusRank()); }
    GdbDebugger* rankDebugger(int rank) const { return ranks_[std::size_t(rank)].get(); }
    MpiJob* job() const { return job_; }

    // Resumes every rank with `command` (MI's run control, such as
    // "-exec-continue") and waits up to `timeoutMs` for all to stop. When
    // all are stopped afterwards the listeners hear of the focus rank's
    // stop, also after a failure (ranks that did not stop in time are
    // interrupted where they are). False with `error` in words.
    bool runAll(const QString& command, int timeoutMs, QString& error);
    // Stops every rank of a runAll under way.
    void interruptAll() { job_->interruptAll(); }
    bool running() const { return job_->resuming(); }
    // True when every rank's gdb lives and its rank is stopped.
    bool allStopped() const;

private:
    void forward(int rank, const AsyncRecord& record);

    MpiJob* job_;
    std::vector<std::unique_ptr<GdbDebugger>> ranks_;
    QVector<int> selection_;
    QPointer<NQ::IContextManager> contexts_;
    // The whole array of each expression as the last set that answered for
    // it saw it ("[0:1][0:23][0:63]"), written by the request workers.
    struct Whole {
        QVector<int> ranks;
        QString slice;
    };
    struct Wholes {
        std::mutex mutex;
        QHash<QString, Whole> byExpression;
    };
    std::shared_ptr<Wholes> wholes_ = std::make_shared<Wholes>();
    // The focus rank's stop, held while the ranks run together.
    AsyncRecord heldStop_;
    bool haveHeldStop_ = false;
};

} // namespace arraylens::gdb

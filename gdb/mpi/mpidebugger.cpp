#include "mpidebugger.h"

#include "processset.h"

namespace arraylens::gdb {

namespace {
const char kStoppedRecord[] = "StoppedRecord";
}

MpiDebugger::MpiDebugger(MpiJob* job, QObject* parent) : IHVDebugger(parent), job_(job) {
    for (int r = 0; r < job_->size(); ++r) {
        ranks_.push_back(std::make_unique<GdbDebugger>(job_->session(r)));
        connect(ranks_.back().get(), &IHVDebugger::debuggerEvent, this,
                [this, r](AsyncRecord record) { forward(r, record); });
        selection_ << r;
    }
}

MpiDebugger::~MpiDebugger() = default;

void MpiDebugger::setContextManager(NQ::IContextManager* contexts) {
    contexts_ = contexts;
    if (!ranks_.empty())
        focusDebugger()->setContextManager(contexts);
}

bool MpiDebugger::select(const QVector<int>& ranks) {
    if (ranks.isEmpty())
        return false;
    QVector<int> seen;
    for (int r : ranks) {
        if (r < 0 || r >= job_->size() || seen.contains(r))
            return false;
        seen << r;
    }
    GdbDebugger* before = focusDebugger();
    selection_ = ranks;
    if (focusDebugger() != before) {
        before->setContextManager(nullptr);
        focusDebugger()->setContextManager(contexts_);
    }
    return true;
}

QFuture<QSharedPointer<QObject>> MpiDebugger::sendRequest(HVDWPRequest request) {
    // The set is taken now: a later change of selection is a new request's.
    QVector<RankTarget> set;
    for (int r : selection_)
        set.push_back({r, job_->session(r)});
    auto wholes = wholes_;
    const QVector<int> chosen = selection_;
    return focusDebugger()->sendRequest(std::move(request), [set, wholes, chosen](
                                                                const RequestSnapshot& snapshot,
                                                                const std::atomic<bool>* cancel) {
        RequestSnapshot request = snapshot;
        {
            // The view keeps the whole array of the set it last saw as
            // the expression's slice; a set of another shape (with or
            // without the process dimension) reads it as its own whole
            // array. Any other slice is taken as it stands.
            std::lock_guard<std::mutex> lock(wholes->mutex);
            const auto it = wholes->byExpression.constFind(request.expression);
            if (it != wholes->byExpression.constEnd() && it->ranks != chosen &&
                !request.slice.isEmpty() && request.slice == it->slice)
                request.slice.clear();
        }
        Fields fields = performProcessSetRequest(set, request, cancel);
        for (const auto& field : fields)
            if (field.first == "EmptySlice" && !field.second.toString().isEmpty()) {
                std::lock_guard<std::mutex> lock(wholes->mutex);
                wholes->byExpression.insert(request.expression, {chosen, field.second.toString()});
            }
        return fields;
    });
}

IHVExpression* MpiDebugger::createExpression(const QString& text) {
    return focusDebugger()->createExpression(text);
}

IHVExpression* MpiDebugger::cloneExpression(IHVExpression* expression) {
    // The copy is evaluated by the focus rank's gdb, whichever made the
    // original.
    return focusDebugger()->cloneExpression(expression);
}

bool MpiDebugger::allStopped() const {
    for (int r = 0; r < job_->size(); ++r) {
        GdbSession* s = job_->session(r);
        if (!s || !s->isAlive() || s->targetState() != GdbSession::TargetState::Stopped)
            return false;
    }
    return true;
}

bool MpiDebugger::runAll(const QString& command, int timeoutMs, QString& error) {
    haveHeldStop_ = false;
    const bool ok = job_->resumeAll(command, timeoutMs, error);
    // One stop of the whole job: the focus rank's, once all are through.
    if (haveHeldStop_) {
        haveHeldStop_ = false;
        emit debuggerEvent(heldStop_);
    }
    return ok;
}

void MpiDebugger::forward(int rank, const AsyncRecord& record) {
    if (rank != focusRank())
        return;
    if (job_->resuming() && record.getID() == QLatin1String(kStoppedRecord)) {
        heldStop_ = record;
        haveHeldStop_ = true;
        return;
    }
    emit debuggerEvent(record);
}

} // namespace arraylens::gdb

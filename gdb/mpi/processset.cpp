#include "processset.h"

#include "arrayresolver.h"
#include "mpijob.h"

#include "arraylens/arraylens.h"
#include "arraylens/rankspace.h"

#include <QStringList>

#include <future>
#include <memory>
#include <vector>

namespace arraylens::gdb {

namespace {

using State = GdbSession::TargetState;

// One rank's view of the expression.
struct Resolved {
    bool ok = false;
    Failure failure;
    ArrayFacts facts;
    arraylens::ArrayDescriptor array;
};

Resolved resolve(GdbSession& session, const RequestSnapshot& request) {
    Resolved out;
    ArrayResolver resolver(session);
    FrameInfo frame;
    {
        const auto transaction = session.beginTransaction();
        if (!resolver.locate(request.focus, request.scopeId, request.depth, frame, out.failure) ||
            !resolver.describe(frame, request.expression, true, out.facts, out.failure))
            return out;
    }
    out.ok = ArrayResolver::toDescriptor(out.facts, out.array, out.failure);
    return out;
}

// "[13][64]" in C form, "(1:13,1:64)" in Fortran form.
QString shapeText(const arraylens::ArrayDescriptor& a) {
    QStringList parts;
    if (a.language == arraylens::Language::Fortran) {
        for (const auto& d : a.dims)
            parts << QStringLiteral("%1:%2").arg(d.lower).arg(d.upper);
        return QLatin1Char('(') + parts.join(QLatin1Char(',')) + QLatin1Char(')');
    }
    QString out;
    for (const auto& d : a.dims)
        out += QStringLiteral("[%1]").arg(d.extent());
    return out;
}

// "ranks 0 and 1 hold [13][64], ranks 2 and 3 hold [12][64] of double".
QString shapeGroups(const QVector<RankTarget>& ranks, const std::vector<Resolved>& resolved) {
    QStringList order;
    QHash<QString, QVector<int>> groups;
    for (int i = 0; i < ranks.size(); ++i) {
        const QString shape = shapeText(resolved[std::size_t(i)].array) + QStringLiteral(" of ") +
                              resolved[std::size_t(i)].facts.elementType;
        if (!groups.contains(shape))
            order << shape;
        groups[shape] << ranks[i].rank;
    }
    QStringList parts;
    for (const QString& shape : order)
        parts << QStringLiteral("%1 %2 %3")
                     .arg(rankListWords(groups[shape]),
                          groups[shape].size() == 1 ? QStringLiteral("holds")
                                                    : QStringLiteral("hold"),
                          shape);
    return parts.join(QStringLiteral(", "));
}

} // namespace

Fields performProcessSetRequest(const QVector<RankTarget>& ranks, const RequestSnapshot& request,
                                const std::atomic<bool>* cancel) {
    if (request.operation == Operation::Unknown)
        return errorFields(request, QStringLiteral("Unknown request '%1'.").arg(request.id),
                           QStringLiteral("request"));
    if (ranks.isEmpty())
        return errorFields(request, QStringLiteral("No rank is chosen."),
                           QStringLiteral("request"));
    for (const RankTarget& t : ranks) {
        if (!t.session || !t.session->isAlive())
            return errorFields(request,
                               QStringLiteral("The debugger of rank %1 has stopped.").arg(t.rank),
                               QStringLiteral("stopped"));
        switch (t.session->targetState()) {
        case State::None:
        case State::Exited:
            return errorFields(request, QStringLiteral("Rank %1 has exited.").arg(t.rank),
                               QStringLiteral("exit"));
        case State::Running:
            return staleFields(request);
        case State::Stopped:
            break;
        }
    }

    // A rank that runs while we read mixes two states: such an answer is stale.
    std::vector<quint64> generations;
    for (const RankTarget& t : ranks)
        generations.push_back(t.session->runGeneration());
    auto ranMeanwhile = [&] {
        for (int i = 0; i < ranks.size(); ++i)
            if (ranks[i].session->runGeneration() != generations[std::size_t(i)])
                return true;
        return false;
    };

    // Every rank's gdb answers on its own: resolve them side by side.
    std::vector<std::future<Resolved>> pending;
    for (const RankTarget& t : ranks)
        pending.push_back(std::async(std::launch::async, [&request, session = t.session] {
            return resolve(*session, request);
        }));
    std::vector<Resolved> resolved;
    for (auto& p : pending)
        resolved.push_back(p.get());
    for (int i = 0; i < ranks.size(); ++i) {
        const Resolved& r = resolved[std::size_t(i)];
        if (!r.ok) {
            Fields f = failureFields(request, r.failure);
            for (auto& field : f)
                if (field.first == "msg")
                    field.second = QStringLiteral("Rank %1: %2")
                                       .arg(ranks[i].rank)
                                       .arg(field.second.toString());
            return f;
        }
    }

    std::vector<std::unique_ptr<MemoryAccess>> readers;
    std::vector<arraylens::RankArray> set;
    std::size_t tileBytes = arraylens::kDefaultTileBytes;
    bool sameShape = true, sameType = true;
    for (int i = 0; i < ranks.size(); ++i) {
        readers.push_back(std::make_unique<MemoryAccess>(*ranks[i].session));
        tileBytes = std::max(tileBytes, readers.back()->tileBytes());
        const auto& array = resolved[std::size_t(i)].array;
        set.push_back({ranks[i].rank, array, &readers.back()->reader()});
        sameShape = sameShape && arraylens::shapeDifference(set.front().array, array).empty();
        sameType = sameType && arraylens::sameElementType(set.front().array, array);
    }
    const ArrayFacts& facts = resolved.front().facts;
    // One rank chosen: that rank's own array, without a process dimension.
    Fields answer;
    if (ranks.size() == 1) {
        answer = computeFields(request, facts, set.front().array, readers.front()->reader(),
                               tileBytes, cancel);
        return ranMeanwhile() ? staleFields(request) : answer;
    }

    if (!sameType)
        return errorFields(request,
                           QStringLiteral("'%1' has different element types in different "
                                          "ranks: %2. Choose one rank.")
                               .arg(request.expression, shapeGroups(ranks, resolved)),
                           QStringLiteral("type"));
    if (!sameShape &&
        (request.operation == Operation::ArrayInfo || request.operation == Operation::Table))
        return errorFields(request,
                           QStringLiteral("'%1' has different shapes in different ranks: %2. "
                                          "Choose one rank (--ranks, or the rank list).")
                               .arg(request.expression, shapeGroups(ranks, resolved)),
                           QStringLiteral("shape"));

    auto space = sameShape ? arraylens::stackRanks(set) : arraylens::concatenateRanks(set);
    if (!space)
        return errorFields(request, QString::fromStdString(space.message()),
                           QStringLiteral("request"));
    answer = computeFields(request, facts, space->array, *space->reader, tileBytes, cancel);
    return ranMeanwhile() ? staleFields(request) : answer;
}

} // namespace arraylens::gdb

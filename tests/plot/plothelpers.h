#pragma once
// Shared by the plot tests: scripted plot answers and a way to ask a chart
// page what it shows.

#include "support/fakehost.h"

#include <QByteArray>
#include <QSharedPointer>
#include <QVariant>
#include <QVariantMap>
#include <QWebEnginePage>
#include <vector>

namespace plottest {

inline QByteArray packDoubles(const std::vector<double>& values) {
    return QByteArray(reinterpret_cast<const char*>(values.data()),
                      int(values.size() * sizeof(double)));
}

// A successful answer to a plot request.
inline QVariantMap plotAnswer(const std::vector<double>& values, int rank = 1, int rows = 0,
                              int cols = 0, const QString& emptySlice = QString()) {
    QVariantMap answer;
    answer.insert(QStringLiteral("result"), QStringLiteral("done"));
    answer.insert(QStringLiteral("AllEvaluations"), packDoubles(values));
    answer.insert(QStringLiteral("Rank"), rank);
    if (rank == 2) {
        answer.insert(QStringLiteral("Rows"), rows);
        answer.insert(QStringLiteral("Cols"), cols);
    }
    answer.insert(QStringLiteral("ActualType"), QStringLiteral("double [%1]").arg(values.size()));
    answer.insert(QStringLiteral("EmptySlice"), emptySlice);
    return answer;
}

inline std::vector<double> ramp(int n) {
    std::vector<double> v(size_t(n > 0 ? n : 0));
    for (int i = 0; i < n; ++i)
        v[size_t(i)] = double(i);
    return v;
}

// Runs a script in the page and waits for its value.
inline QVariant evalJs(QWebEnginePage* page, const QString& script, int timeoutMs = 10000) {
    struct State {
        bool done = false;
        QVariant value;
    };
    auto state = QSharedPointer<State>::create();
    page->runJavaScript(script, [state](const QVariant& v) {
        state->value = v;
        state->done = true;
    });
    fake::waitFor([state] { return state->done; }, timeoutMs);
    return state->value;
}

// The number of charts the page has drawn (it counts each one once it is on
// screen); -1 while the page cannot say.
inline int drawCount(QWebEnginePage* page) {
    const QVariant v =
        evalJs(page, QStringLiteral("window.drawCount === undefined ? -1 : window.drawCount"));
    return v.isValid() ? v.toInt() : -1;
}

// Waits until the page has drawn more than `before` charts.
inline bool waitForDraw(QWebEnginePage* page, int before = 0, int timeoutMs = 20000) {
    return fake::waitFor([&] { return drawCount(page) > before; }, timeoutMs);
}

} // namespace plottest

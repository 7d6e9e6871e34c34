// Checks of one array's four operations against the reference values its
// example program wrote (see examples/README.md), shared by the tests of
// every example.
#pragma once

#include "gdbrig.h"

#include <QList>
#include <QVariantList>
#include <QVector>

namespace gdbtest {

// One array's facts from the reference file.
struct ArrayRef {
    QString name;
    QString expr;
    QString type;
    QStringList bounds;
    QMap<QString, QString> values;   // "count", "sum", ...
    QMap<QString, QString> elements; // "[2][5]" -> value
};

// The arrays among `names` that the reference describes.
QList<ArrayRef> arraysOf(const QMap<QString, QString>& ref, const QStringList& names);

bool isFloatType(const QString& t);
bool isSinglePrecision(const QString& t);
bool isCharType(const QString& t);
bool isPlainInteger(const QString& text);

// The numbers of an index text: "[2][-5]" or "(3,-1)" gives 2,-5 or 3,-1.
QVector<qint64> indexOf(const QString& text);

// Statistics of the whole array (or of a slice or filter) against the
// program's own numbers.
void expectStatistics(const QObject* bag, const ArrayRef& a);

// One element as a table cell and as a plot value.
void expectElement(Rig& rig, IHVExpression* e, const ArrayRef& a, const QString& index,
                   const QString& expected, const QVariantList* plotValues);

// A plot answer's "AllEvaluations": raw doubles.
QVariantList doublesOf(const QByteArray& block);

// Evaluates one array the program wrote values for, then checks its
// information, statistics, elements and plot values. `evaluated` receives the
// expression, `plotted` the plot's values, for further checks by the caller.
void checkArray(Rig& rig, const ArrayRef& a, GdbExpression** evaluated = nullptr,
                QVariantList* plotted = nullptr);

// Every array the program wrote values for at this stop.
void checkEveryArray(Rig& rig);

} // namespace gdbtest

// Checks of the four operations against the reference values the example
// programs write themselves (format in examples/README.md).
#pragma once

#include "gdbrig.h"

namespace gdbtest {

// What a program wrote about one array.
struct ArrayRef {
    QString name;
    QString expr;
    QString type;
    QStringList bounds;
    QMap<QString, QString> values;   // "count", "sum", ...
    QMap<QString, QString> elements; // "[2][5]" -> value
};

// The arrays among `names` of a reference file.
QList<ArrayRef> arraysOf(const QMap<QString, QString>& ref, const QStringList& names);

// Element types as the reference files name them ("double", "real(kind=4)").
bool isFloatType(const QString& t);
bool isSinglePrecision(const QString& t);

// A plot answer's "AllEvaluations" (raw doubles) as numbers.
QVariantList doublesOf(const QByteArray& block);

// Statistics of the whole array (or of a slice or filter) against the
// program's own numbers.
void expectStatistics(const QObject* bag, const ArrayRef& a);

// Evaluates `expression` (the reference's own when empty), then checks its
// information, statistics, chosen elements (table cells) and plot values
// against what the program wrote about `a`.
void checkArray(Rig& rig, const ArrayRef& a, const QString& expression = {});

// checkArray() of every array the program wrote values for at this stop.
void checkEveryArray(Rig& rig);

// A value without elements (an empty container): an array all the same,
// bounds 0:-1, Count 0, no plot values, no table cells.
void expectEmptyArray(Rig& rig, const QString& expression);

} // namespace gdbtest

// A response bag as one JSON object, keys being the property names in the
// order they were set. 64-bit integers are written exactly (no detour
// through double), non-finite doubles as the strings "nan", "inf", "-inf",
// "StatValid" as a string of "0" and "1" (bit 0 first), "AllEvaluations"
// as an array of numbers.
#pragma once

#include <QByteArray>
#include <QVariant>

class QObject;

namespace arraylens::cli {

QByteArray bagToJson(const QObject* bag);
// One value; `name` picks the special forms above.
QByteArray valueToJson(const QVariant& value, const QByteArray& name = {});

} // namespace arraylens::cli

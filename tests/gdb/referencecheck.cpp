// Checks of the four operations against the reference values the example
// programs write themselves.
#include "referencecheck.h"

#include <QBitArray>
#include <QRegularExpression>
#include <QVariantMap>

#include <cstring>

namespace gdbtest {

QList<ArrayRef> arraysOf(const QMap<QString, QString>& ref, const QStringList& names) {
    QList<ArrayRef> out;
    for (auto it = ref.begin(); it != ref.end(); ++it) {
        if (!it.key().endsWith(QLatin1String(".expr")) || !names.contains(it.key().chopped(5)))
            continue;
        ArrayRef a;
        a.name = it.key().chopped(5);
        a.expr = it.value();
        const QString prefix = a.name + QLatin1Char('.');
        for (auto f = ref.begin(); f != ref.end(); ++f) {
            if (!f.key().startsWith(prefix))
                continue;
            const QString field = f.key().mid(prefix.size());
            if (field.startsWith(QLatin1String("elem[")) ||
                field.startsWith(QLatin1String("elem(")))
                a.elements.insert(field.mid(4), f.value());
            else
                a.values.insert(field, f.value());
        }
        a.type = a.values.value(QStringLiteral("type"));
        a.bounds = a.values.value(QStringLiteral("bounds")).split(QLatin1Char(','));
        out.append(a);
    }
    return out;
}

bool isFloatType(const QString& t) {
    return t.contains(QLatin1String("float")) || t.contains(QLatin1String("double")) ||
           t.startsWith(QLatin1String("real"));
}

bool isSinglePrecision(const QString& t) {
    return t == QLatin1String("float") || t == QLatin1String("real(kind=4)");
}

static bool isCharType(const QString& t) {
    return t == QLatin1String("char") || t == QLatin1String("signed char") ||
           t == QLatin1String("unsigned char") || t.startsWith(QLatin1String("character"));
}

static bool isPlainInteger(const QString& text) {
    static const QRegularExpression integer(QStringLiteral("^-?[0-9]+$"));
    return integer.match(text).hasMatch();
}

static QVector<qint64> indexOf(const QString& text) {
    QVector<qint64> out;
    static const QRegularExpression number(QStringLiteral("-?[0-9]+"));
    auto it = number.globalMatch(text);
    while (it.hasNext())
        out.append(it.next().captured().toLongLong());
    return out;
}

// Statistics of the whole array (or of a slice or filter) against the
// program's own numbers.
void expectStatistics(const QObject* bag, const ArrayRef& a) {
    SCOPED_TRACE(a.name.toStdString());
    ASSERT_EQ(bag->property("result").toString(), QStringLiteral("done"))
        << bag->property("msg").toString().toStdString();
    const auto& v = a.values;
    EXPECT_EQ(bag->property("Count").toLongLong(), v["count"].toLongLong());
    EXPECT_EQ(bag->property("ZeroCount").toLongLong(), v["zeros"].toLongLong());
    const bool floating = isFloatType(a.type);
    const QBitArray valid = bag->property("StatValid").toBitArray();
    ASSERT_GE(valid.size(), 16);
    EXPECT_EQ(valid.testBit(13), floating);
    EXPECT_EQ(valid.testBit(15), floating);
    if (floating) {
        EXPECT_EQ(bag->property("NanCount").toLongLong(), v["nans"].toLongLong());
        EXPECT_EQ(bag->property("InfCount").toLongLong(), v["infs"].toLongLong());
        EXPECT_EQ(bag->property("DenormCount").toLongLong(), v["denormals"].toLongLong());
    }
    const bool anyFinite = v["finite"].toLongLong() > 0;
    EXPECT_EQ(valid.testBit(7), anyFinite);
    if (!anyFinite)
        return;
    if (!floating && isPlainInteger(v["sum"]))
        EXPECT_EQ(bag->property("Sum").toString(), v["sum"]);
    else
        EXPECT_TRUE(near(number(v["sum"]), bag->property("Sum").toDouble(), 1e-12));
    for (const char* key : {"min", "max", "lower_adjacent", "upper_adjacent"}) {
        const char* prop = std::strcmp(key, "min") == 0              ? "Min"
                           : std::strcmp(key, "max") == 0            ? "Max"
                           : std::strcmp(key, "lower_adjacent") == 0 ? "LowerAdjValue"
                                                                     : "UpperAdjValue";
        SCOPED_TRACE(key);
        if (!floating)
            EXPECT_EQ(bag->property(prop).toString(), v[key]);
        else
            EXPECT_TRUE(near(number(v[key]), bag->property(prop).toDouble(), 0));
    }
    EXPECT_TRUE(near(number(v["mean"]), bag->property("Mean").toDouble(), 1e-12));
    EXPECT_TRUE(near(number(v["stddev"]), bag->property("StdDev").toDouble(), 1e-9));
    EXPECT_TRUE(near(number(v["q1"]), bag->property("FirstQuartile").toDouble(), 1e-12));
    EXPECT_TRUE(near(number(v["median"]), bag->property("Median").toDouble(), 1e-12));
    EXPECT_TRUE(near(number(v["q3"]), bag->property("ThirdQuartile").toDouble(), 1e-12));
}

// One element as a table cell and as a plot value.
static void expectElement(Rig& rig, IHVExpression* e, const ArrayRef& a, const QString& index,
                          const QString& expected, const QVariantList* plotValues) {
    SCOPED_TRACE((a.name + QStringLiteral(" element ") + index).toStdString());
    const bool fortran = e->isFortranExpression();
    const QVector<qint64> idx = indexOf(index);
    const int n = idx.size();
    ASSERT_EQ(n, a.bounds.size());
    QVector<qint64> lower, extent;
    for (const QString& b : a.bounds) {
        const auto parts = b.split(QLatin1Char(':'));
        lower.append(parts[0].toLongLong());
        extent.append(parts[1].toLongLong() - parts[0].toLongLong() + 1);
    }
    // A plane through the element: the table's two dimensions whole, every
    // other one fixed at the element's index.
    QStringList dims;
    int rowDim = 0, colDim = -1;
    if (n >= 2) {
        rowDim = fortran ? 0 : n - 2;
        colDim = fortran ? 1 : n - 1;
    }
    for (int d = 0; d < n; ++d)
        dims << ((d == rowDim || d == colDim) ? QStringLiteral(":")
                                              : QStringLiteral("%1:%1").arg(idx[d]));
    const QString slice =
        n < 2     ? QString()
        : fortran ? QLatin1Char('(') + dims.join(QLatin1Char(',')) + QLatin1Char(')')
                  : QLatin1Char('[') + dims.join(QStringLiteral("][")) + QLatin1Char(']');
    const int row = int(idx[rowDim] - lower[rowDim]);
    const int col = colDim < 0 ? 0 : int(idx[colDim] - lower[colDim]);
    const bool floating = isFloatType(a.type);
    auto bag = rig.table(e, slice, floating ? 0 : 3, row, row, col, col);
    ASSERT_TRUE(bag);
    ASSERT_EQ(bag->property("result").toString(), QStringLiteral("done"))
        << bag->property("msg").toString().toStdString();
    QString cell;
    bool found = false;
    for (const QVariant& entry : bag->property("TableDataList").toList()) {
        const QVariantMap m = entry.toMap();
        if (m.value(QStringLiteral("row")).toInt() == row &&
            m.value(QStringLiteral("col")).toInt() == col) {
            cell = m.value(QStringLiteral("value")).toString();
            found = true;
        }
    }
    ASSERT_TRUE(found) << "no cell at " << row << "," << col;
    if (!floating) {
        EXPECT_EQ(cell.section(QLatin1Char(' '), 0, 0), expected);
    } else if (isSinglePrecision(a.type)) {
        EXPECT_EQ(float(number(cell)), float(number(expected))) << cell.toStdString();
    } else {
        EXPECT_TRUE(near(number(expected), number(cell), 1e-15)) << cell.toStdString();
    }

    if (plotValues) {
        qint64 linear = 0;
        for (int d = 0; d < n; ++d)
            linear = linear * extent[d] + (idx[d] - lower[d]);
        ASSERT_LT(linear, plotValues->size());
        const double value = plotValues->at(int(linear)).toDouble();
        if (isSinglePrecision(a.type))
            EXPECT_EQ(float(value), float(number(expected)));
        else
            EXPECT_TRUE(near(number(expected), value, 1e-15));
    }
}

QVariantList doublesOf(const QByteArray& block) {
    QVariantList out;
    const int n = block.size() / 8;
    for (int i = 0; i < n; ++i) {
        double d;
        std::memcpy(&d, block.constData() + 8 * i, 8);
        out.append(d);
    }
    return out;
}

void checkEveryArray(Rig& rig) {
    const QList<ArrayRef> arrays = arraysOf(rig.ref, rig.arraysOfThisStop);
    ASSERT_FALSE(arrays.isEmpty());
    for (const ArrayRef& a : arrays) {
        if (a.values.contains(QStringLiteral("slice")) ||
            a.values.contains(QStringLiteral("filter")))
            continue; // checked by the tests of slices and filters
        if (a.values.contains(QStringLiteral("frame")))
            continue; // lives in another frame; see the recursion test
        checkArray(rig, a);
    }
}

void checkArray(Rig& rig, const ArrayRef& a, const QString& expression) {
    const QString expr = expression.isEmpty() ? a.expr : expression;
    SCOPED_TRACE(("array " + a.name + " = " + expr).toStdString());
    GdbExpression* e = rig.evaluate(expr);
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    EXPECT_TRUE(e->isArray());
    if (a.values.contains(QStringLiteral("byte_strides"))) {
        // Measured by the program from its own element addresses.
        QStringList strides;
        for (qint64 s : e->facts().byteStrides)
            strides << QString::number(s);
        EXPECT_EQ(strides.join(QLatin1Char(',')), a.values.value(QStringLiteral("byte_strides")));
    }

    auto info = rig.info(e);
    ASSERT_TRUE(info);
    ASSERT_EQ(info->property("result").toString(), QStringLiteral("done"))
        << info->property("msg").toString().toStdString();
    EXPECT_EQ(info->property("DimCount").toInt(), a.bounds.size());
    EXPECT_EQ(info->property("ArrayBounds").toStringList(), a.bounds);
    EXPECT_EQ(info->property("DataType").toInt(),
              isFloatType(a.type) ? 1 : (isCharType(a.type) ? 2 : 0));
    EXPECT_EQ(info->property("ActualType").toString(), e->getActualType());

    auto stats = rig.statistics(e);
    ASSERT_TRUE(stats);
    expectStatistics(stats.data(), a);

    const qint64 count = a.values.value(QStringLiteral("count")).toLongLong();
    QVariantList values;
    const bool plotted = count <= 1000000;
    if (plotted) {
        auto plot = rig.plot(e);
        ASSERT_TRUE(plot);
        ASSERT_EQ(plot->property("result").toString(), QStringLiteral("done"))
            << plot->property("msg").toString().toStdString();
        values = doublesOf(plot->property("AllEvaluations").toByteArray());
        EXPECT_EQ(values.size(), count);
        EXPECT_EQ(plot->property("Rank").toInt(), a.bounds.size());
    }
    for (auto it = a.elements.begin(); it != a.elements.end(); ++it)
        expectElement(rig, e, a, it.key(), it.value(), plotted ? &values : nullptr);
}

void expectEmptyArray(Rig& rig, const QString& expression) {
    SCOPED_TRACE(expression.toStdString());
    GdbExpression* e = rig.evaluate(expression);
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    EXPECT_TRUE(e->isArray());
    auto info = rig.info(e);
    ASSERT_EQ(resultOf(info), QStringLiteral("done")) << msgOf(info).toStdString();
    EXPECT_EQ(info->property("ArrayBounds").toStringList(), QStringList{QStringLiteral("0:-1")});
    auto stats = rig.statistics(e);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    EXPECT_EQ(stats->property("Count").toInt(), 0);
    auto plot = rig.plot(e);
    ASSERT_EQ(resultOf(plot), QStringLiteral("done")) << msgOf(plot).toStdString();
    EXPECT_TRUE(plot->property("AllEvaluations").toByteArray().isEmpty());
    auto table = rig.table(e, QString(), 0, 0, 10, 0, 0);
    ASSERT_EQ(resultOf(table), QStringLiteral("done")) << msgOf(table).toStdString();
    EXPECT_TRUE(table->property("TableDataList").toList().isEmpty());
}

} // namespace gdbtest

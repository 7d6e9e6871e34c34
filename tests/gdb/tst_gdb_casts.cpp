// Casts of Fortran arrays through a real gdb: the memory of the example's
// real(8) arrays read as other Fortran types. Expected values come from the
// program's own reference values of the doubles, their bytes reinterpreted
// here, never from the service's engine.
#include "gdbrig.h"

#include "arrayresolver.h"

#include <QFileInfo>

#include <algorithm>
#include <cstring>
#include <vector>

using namespace gdbtest;

namespace {

std::unique_ptr<Rig> fortranAtMain() {
    auto rig = makeRig();
    QString why;
    if (!rig->startAt(QStringLiteral("example_arrays_fortran"), QStringLiteral("arrays_f90.main"),
                      &why)) {
        ADD_FAILURE() << "cannot start the Fortran example: " << why.toStdString();
        return nullptr;
    }
    return rig;
}

// The bytes of the doubles of a "NAME.values=" reference line, read as T.
template <class T> std::vector<T> reinterpreted(const QString& line) {
    std::vector<double> doubles;
    for (const QString& part : line.split(QLatin1Char(','), Qt::SkipEmptyParts))
        doubles.push_back(number(part));
    std::vector<T> out(doubles.size() * sizeof(double) / sizeof(T));
    std::memcpy(out.data(), doubles.data(), out.size() * sizeof(T));
    return out;
}

// Evaluates again (as the plug-in does after a cast) and waits.
void reevaluate(Rig& rig, GdbExpression* e) {
    auto future = e->evaluate(rig.debugger->currentFrame());
    ASSERT_TRUE(waitFor([&] { return future.isFinished(); }));
}

// The cells of a table answer by (row, column).
QMap<QPair<int, int>, QString> cellsOf(const QSharedPointer<QObject>& bag) {
    QMap<QPair<int, int>, QString> cells;
    for (const QVariant& entry : bag->property("TableDataList").toList()) {
        const QVariantMap m = entry.toMap();
        cells.insert(
            {m.value(QStringLiteral("row")).toInt(), m.value(QStringLiteral("col")).toInt()},
            m.value(QStringLiteral("value")).toString());
    }
    return cells;
}

// The whole plane of a 2-D cast: element (lo1 + r, lo2 + c) is value
// r + rows * c of the reinterpreted memory (column-major).
void expectWholeTable(Rig& rig, GdbExpression* e, const std::vector<qint32>& memory, int rows,
                      int cols) {
    auto table = rig.table(e, QString(), 0, 0, rows - 1, 0, cols - 1);
    ASSERT_EQ(resultOf(table), QStringLiteral("done")) << msgOf(table).toStdString();
    EXPECT_EQ(table->property("RowCount").toInt(), rows);
    EXPECT_EQ(table->property("ColCount").toInt(), cols);
    const auto cells = cellsOf(table);
    ASSERT_EQ(cells.size(), rows * cols);
    ASSERT_GE(int(memory.size()), rows * cols);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            EXPECT_EQ(cells.value({r, c}), QString::number(memory[size_t(r + rows * c)]))
                << "cell " << r << "," << c;
}

void expectStatistics(Rig& rig, GdbExpression* e, std::vector<qint32> values) {
    auto stats = rig.statistics(e);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    qint64 sum = 0;
    for (qint32 v : values)
        sum += v;
    std::sort(values.begin(), values.end());
    EXPECT_EQ(stats->property("Count").toLongLong(), qint64(values.size()));
    EXPECT_EQ(stats->property("Sum").toLongLong(), sum);
    EXPECT_EQ(stats->property("Min").toLongLong(), qint64(values.front()));
    EXPECT_EQ(stats->property("Max").toLongLong(), qint64(values.back()));
    const size_t n = values.size();
    const double median =
        n % 2 ? values[n / 2] : (double(values[n / 2 - 1]) + double(values[n / 2])) / 2;
    EXPECT_EQ(stats->property("Median").toDouble(), median);
}

} // namespace

TEST(GdbFortranCasts, RealsOfXReadAsIntegers) {
    auto rig = fortranAtMain();
    ASSERT_TRUE(rig);
    const std::vector<qint32> memory = reinterpreted<qint32>(rig->ref.value("x.values"));
    ASSERT_EQ(memory.size(), 160u);
    GdbExpression* x = rig->evaluate(QStringLiteral("x"));
    ASSERT_FALSE(x->hasError()) << x->getErrorMessage().toStdString();
    ASSERT_TRUE(x->isFortranExpression());
    const quint64 firstElement = x->facts().address;
    ASSERT_NE(firstElement, 0u);

    // Without a shape the cast keeps x's bounds: the first 80 integers.
    x->setType(QStringLiteral("integer(kind=4)"), true);
    EXPECT_FALSE(x->hasError()) << x->getErrorMessage().toStdString();
    EXPECT_EQ(x->getAlternateExpression(), QStringLiteral("{integer(kind=4) (0:9,-2:5)} x"));
    reevaluate(*rig, x);
    ASSERT_FALSE(x->hasError()) << x->getErrorMessage().toStdString();
    EXPECT_TRUE(x->isArray());
    EXPECT_EQ(x->getActualType(), QStringLiteral("integer(kind=4) (0:9,-2:5)"));
    EXPECT_EQ(x->facts().address, firstElement);
    EXPECT_EQ(x->facts().byteStrides, (QVector<qint64>{4, 40}));
    arraylens::ArrayDescriptor descriptor;
    arraylens::gdb::Failure failure;
    ASSERT_TRUE(arraylens::gdb::ArrayResolver::toDescriptor(x->facts(), descriptor, failure))
        << failure.message.toStdString();
    EXPECT_EQ(descriptor.kind, arraylens::ElementKind::FortranInteger4);
    EXPECT_EQ(descriptor.language, arraylens::Language::Fortran);

    auto info = rig->info(x);
    ASSERT_EQ(resultOf(info), QStringLiteral("done")) << msgOf(info).toStdString();
    EXPECT_EQ(info->property("ArrayBounds").toStringList(), (QStringList{"0:9", "-2:5"}));
    EXPECT_EQ(info->property("EmptySlice").toString(), QStringLiteral("(0:9,-2:5)"));
    EXPECT_EQ(info->property("DataType").toInt(), 0);
    EXPECT_EQ(info->property("ActualType").toString(),
              QStringLiteral("integer(kind=4) (0:9,-2:5)"));
    expectWholeTable(*rig, x, memory, 10, 8);
    expectStatistics(*rig, x, std::vector<qint32>(memory.begin(), memory.begin() + 80));

    // With bounds of its own: all 640 bytes, two integers per double.
    x->setType(QStringLiteral("integer(kind=4) (0:19,-2:5)"), true);
    EXPECT_EQ(x->getAlternateExpression(), QStringLiteral("{integer(kind=4) (0:19,-2:5)} x"));
    reevaluate(*rig, x);
    ASSERT_FALSE(x->hasError()) << x->getErrorMessage().toStdString();
    EXPECT_EQ(x->getActualType(), QStringLiteral("integer(kind=4) (0:19,-2:5)"));
    EXPECT_EQ(x->facts().byteStrides, (QVector<qint64>{4, 80}));
    info = rig->info(x);
    ASSERT_EQ(resultOf(info), QStringLiteral("done")) << msgOf(info).toStdString();
    EXPECT_EQ(info->property("ArrayBounds").toStringList(), (QStringList{"0:19", "-2:5"}));
    EXPECT_EQ(info->property("EmptySlice").toString(), QStringLiteral("(0:19,-2:5)"));
    EXPECT_EQ(info->property("ActualType").toString(),
              QStringLiteral("integer(kind=4) (0:19,-2:5)"));
    expectWholeTable(*rig, x, memory, 20, 8);
    expectStatistics(*rig, x, memory);

    // A Fortran slice of the cast, by its own bounds: rows 2..5, columns -1..1.
    auto table = rig->table(x, QStringLiteral("(2:5,-1:1)"), 0, 0, 3, 0, 2);
    ASSERT_EQ(resultOf(table), QStringLiteral("done")) << msgOf(table).toStdString();
    EXPECT_EQ(table->property("Slice").toString(), QStringLiteral("(2:5:1,-1:1:1)"));
    EXPECT_EQ(table->property("RowLowerBound").toInt(), 2);
    EXPECT_EQ(table->property("RowUpperBound").toInt(), 5);
    EXPECT_EQ(table->property("ColLowerBound").toInt(), -1);
    EXPECT_EQ(table->property("ColUpperBound").toInt(), 1);
    const auto cells = cellsOf(table);
    ASSERT_EQ(cells.size(), 12);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 3; ++c) {
            const int i = 2 + r, j = -1 + c;
            EXPECT_EQ(cells.value({r, c}), QString::number(memory[size_t(i + 20 * (j + 2))]))
                << "x(" << i << "," << j << ")";
        }
    // A statistic of a slice, by the cast's bounds: x(19,5) is the last
    // integer, the high half of the last double.
    auto last = rig->statistics(x, QStringLiteral("(18:19,5)"));
    ASSERT_EQ(resultOf(last), QStringLiteral("done")) << msgOf(last).toStdString();
    EXPECT_EQ(last->property("Count").toInt(), 2);
    EXPECT_EQ(last->property("Sum").toLongLong(), qint64(memory[158]) + memory[159]);
    // Index 20 is outside the cast's bounds.
    auto outside = rig->statistics(x, QStringLiteral("(20,5)"));
    EXPECT_EQ(resultOf(outside), QStringLiteral("error"));

    // Back to the declared type, in another spelling: no cast any more.
    x->setType(QStringLiteral("double precision"), true);
    EXPECT_FALSE(x->hasAlternateExpression()) << x->getAlternateExpression().toStdString();
    EXPECT_EQ(x->getType(), QStringLiteral("real(kind=8) (0:9,-2:5)"));
    auto plain = rig->statistics(x);
    ASSERT_EQ(resultOf(plain), QStringLiteral("done"));
    EXPECT_TRUE(near(number(rig->ref.value("x.sum")), plain->property("Sum").toDouble()));
}

TEST(GdbFortranCasts, TheAllocatablesDataReadAsIntegersAndLogicals) {
    auto rig = fortranAtMain();
    ASSERT_TRUE(rig);
    const std::vector<qint32> memory = reinterpreted<qint32>(rig->ref.value("a.values"));
    ASSERT_EQ(memory.size(), 24u);
    GdbExpression* a = rig->evaluate(QStringLiteral("a"));
    ASSERT_FALSE(a->hasError()) << a->getErrorMessage().toStdString();
    const quint64 data = a->facts().address;

    a->setType(QStringLiteral("INTEGER*4 (6,0:3)"), true);
    EXPECT_EQ(a->getAlternateExpression(), QStringLiteral("{integer(kind=4) (6,0:3)} a"));
    reevaluate(*rig, a);
    ASSERT_FALSE(a->hasError()) << a->getErrorMessage().toStdString();
    // The elements of the allocatable, not its descriptor.
    EXPECT_EQ(a->facts().address, data);
    auto info = rig->info(a);
    ASSERT_EQ(resultOf(info), QStringLiteral("done")) << msgOf(info).toStdString();
    EXPECT_EQ(info->property("ArrayBounds").toStringList(), (QStringList{"1:6", "0:3"}));
    EXPECT_EQ(info->property("EmptySlice").toString(), QStringLiteral("(1:6,0:3)"));
    EXPECT_EQ(info->property("ActualType").toString(), QStringLiteral("integer(kind=4) (6,0:3)"));
    expectWholeTable(*rig, a, memory, 6, 4);
    expectStatistics(*rig, a, memory);

    // Logicals of 8 bytes over the same memory: every double but 0 is true.
    a->setType(QStringLiteral("logical(kind=8)"), true);
    EXPECT_EQ(a->getAlternateExpression(), QStringLiteral("{logical(kind=8) (3,4)} a"));
    reevaluate(*rig, a);
    ASSERT_FALSE(a->hasError()) << a->getErrorMessage().toStdString();
    arraylens::ArrayDescriptor descriptor;
    arraylens::gdb::Failure failure;
    ASSERT_TRUE(arraylens::gdb::ArrayResolver::toDescriptor(a->facts(), descriptor, failure));
    EXPECT_EQ(descriptor.kind, arraylens::ElementKind::FortranLogical8);
    auto stats = rig->statistics(a);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    EXPECT_EQ(stats->property("Count").toInt(), 12);
    EXPECT_EQ(stats->property("ActualType").toString(), QStringLiteral("logical(kind=8) (3,4)"));
}

TEST(GdbFortranCasts, TypesThatCannotBeReadAreRefused) {
    auto rig = fortranAtMain();
    ASSERT_TRUE(rig);
    GdbExpression* x = rig->evaluate(QStringLiteral("x"));
    ASSERT_FALSE(x->hasError());

    struct Case {
        QString type;
        QString message;
    };
    const QList<Case> cases = {
        {QStringLiteral("int"), QStringLiteral("Unknown type 'int'")},
        {QStringLiteral("double [10]"), QStringLiteral("Cannot read the type 'double [10]'")},
        {QStringLiteral("real(kind=3)"),
         QStringLiteral("There is no real(kind=3): real has the kinds 4 and 8.")},
        {QStringLiteral("integer(4) (5:2)"), QStringLiteral("has no elements")},
        {QStringLiteral("character(8)"), QStringLiteral("single characters")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type.toStdString());
        x->setType(c.type, true);
        EXPECT_TRUE(x->hasError());
        EXPECT_TRUE(x->getErrorMessage().contains(c.message)) << x->getErrorMessage().toStdString();
        auto info = rig->info(x);
        EXPECT_EQ(resultOf(info), QStringLiteral("error"));
        EXPECT_TRUE(msgOf(info).contains(c.message)) << msgOf(info).toStdString();
        EXPECT_EQ(info->property("code").toString(), QStringLiteral("type"));
        auto stats = rig->statistics(x);
        EXPECT_EQ(resultOf(stats), QStringLiteral("error"));
        EXPECT_TRUE(msgOf(stats).contains(c.message)) << msgOf(stats).toStdString();
    }
    // The cast taken away takes its refusal with it.
    x->setType(QString(), true);
    EXPECT_FALSE(x->hasAlternateExpression());
    EXPECT_FALSE(x->hasError()) << x->getErrorMessage().toStdString();
    EXPECT_EQ(resultOf(rig->statistics(x)), QStringLiteral("done"));

    // A scalar has no bounds to keep: the cast must give a shape.
    GdbExpression* scalar = rig->evaluate(QStringLiteral("i"));
    ASSERT_FALSE(scalar->hasError()) << scalar->getErrorMessage().toStdString();
    scalar->setType(QStringLiteral("real(8)"), true);
    auto noShape = rig->info(scalar);
    EXPECT_EQ(resultOf(noShape), QStringLiteral("error"));
    EXPECT_TRUE(msgOf(noShape).contains(QStringLiteral("give the cast a shape")))
        << msgOf(noShape).toStdString();

    // Typed type text never reaches gdb as a command of its own.
    const QString marker = rig->dir.filePath(QStringLiteral("smuggled"));
    for (const QString& type :
         {QStringLiteral("integer\" console \"shell touch %1").arg(marker),
          QStringLiteral("integer\n-interpreter-exec console \"shell touch %1\"").arg(marker),
          QStringLiteral("integer} x\\\"\n-gdb-exit {")}) {
        SCOPED_TRACE(type.toStdString());
        x->setType(type, true);
        EXPECT_TRUE(x->hasError());
        auto bag = rig->statistics(x);
        EXPECT_EQ(resultOf(bag), QStringLiteral("error"));
        EXPECT_FALSE(msgOf(bag).isEmpty());
    }
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_TRUE(rig->session->isAlive());
}

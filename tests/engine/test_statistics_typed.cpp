// Statistics, plot values and table cells of every element kind, over C and
// Fortran layouts and a strided Fortran section, with strided, reversed and
// fixed slices and several filters, each compared with a plain reference
// computed here: nested loops over the indices, a sort for the quantiles.
#include "refdata.h"

#include "arraylens/arraylens.h"
#include "arraylens/slice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <xxhash.h>

using namespace arraylens;
using reftest::KindCase;

namespace {

#ifdef ARRAYLENS_TEST_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

struct RefRange {
    std::int64_t start, end, stride;
    bool fixed;
    std::int64_t count() const { return (end - start) / stride + 1; }
};

struct SliceCase {
    std::string text;
    std::vector<RefRange> ranges;
};

struct LayoutCase {
    std::string name;
    ArrayDescriptor array;
    std::vector<SliceCase> slices;
    const void* memory; // the bytes the array lives in
    std::size_t bytes;
};

// One element as the reference sees it.
struct RefElement {
    const unsigned char* bytes;
    long double value; // exact for every kind
    bool nan, inf, denorm, zero;
};

using Predicate = std::function<bool(const RefElement&)>;

struct FilterCase {
    std::string text;
    Predicate pass;
};

std::vector<FilterCase> filterCases() {
    return {
        {"", [](const RefElement&) { return true; }},
        {"$value >= -20 .and. $value .ne. $nan",
         [](const RefElement& e) { return !e.nan && e.value >= -20; }},
        {"abs($value) < 100 || $value == $inf",
         [](const RefElement& e) { return (!e.nan && std::fabs(e.value) < 100) || e.inf; }},
        {"$value > 9223372036854775806 || $value < -5",
         [](const RefElement& e) {
             return !e.nan && (e.value > 9223372036854775806.0L || e.value < -5);
         }},
        {"$value == $denorm || $value == $ninf || $value != $value",
         [](const RefElement& e) { return e.denorm || (e.inf && e.value < 0) || e.nan; }},
    };
}

// Quantile by linear interpolation between closest ranks, written as numpy
// writes it, in double, or for long double elements in long double.
template <class F> double refQuantile(const std::vector<F>& sorted, double p) {
    const double virt = static_cast<double>(sorted.size() - 1) * p;
    const double lo = std::floor(virt);
    const std::size_t i = static_cast<std::size_t>(lo);
    const std::size_t j = std::min(i + 1, sorted.size() - 1);
    const F t = virt - lo;
    const F a = sorted[i], b = sorted[j];
    const F diff = b - a;
    return static_cast<double>(t >= F(0.5) ? b - diff * (1 - t) : a + diff * t);
}

template <class Case> class EngineKinds : public ::testing::Test {
public:
    using S = typename Case::Storage;
    static constexpr ElementKind K = Case::kind;
    static constexpr std::size_t es = sizeof(S);

    std::vector<S> cData, fData, sData;
    std::vector<LayoutCase> layouts;
    int held = 0; // statistics settled in one pass by a sample's windows

    void SetUp() override {
        // C array [6][11][13].
        cData = reftest::randomData<Case>(6 * 11 * 13, 11u + static_cast<unsigned>(K));
        ArrayDescriptor c =
            ArrayDescriptor::cArray(K, reinterpret_cast<std::uintptr_t>(cData.data()), {6, 11, 13});
        c.elementSize = es;
        layouts.push_back(
            {"C",
             c,
             {{"", {{0, 5, 1, false}, {0, 10, 1, false}, {0, 12, 1, false}}},
              {"[1:5:2][::3][12:0:-2]", {{1, 5, 2, false}, {0, 10, 3, false}, {12, 0, -2, false}}},
              {"[4:0:-1][ 10 : 2 : -4 ][7]",
               {{4, 0, -1, false}, {10, 2, -4, false}, {7, 7, 1, true}}},
              {"[2][3:][:]", {{2, 2, 1, true}, {3, 10, 1, false}, {0, 12, 1, false}}}},
             cData.data(),
             cData.size() * es});

        // Fortran array (-2:3, 1:11, 0:12), column-major.
        fData = reftest::randomData<Case>(6 * 11 * 13, 101u + static_cast<unsigned>(K));
        ArrayDescriptor f = ArrayDescriptor::fortranArray(
            K, reinterpret_cast<std::uintptr_t>(fData.data()), {{-2, 3}, {1, 11}, {0, 12}});
        f.elementSize = es;
        layouts.push_back(
            {"Fortran",
             f,
             {{"", {{-2, 3, 1, false}, {1, 11, 1, false}, {0, 12, 1, false}}},
              {"(-1:3:2, ::3, 12:0:-2)",
               {{-1, 3, 2, false}, {1, 11, 3, false}, {12, 0, -2, false}}},
              {"(3:-2:-1,10:2:-4,7)", {{3, -2, -1, false}, {10, 2, -4, false}, {7, 7, 1, true}}},
              {"(0, 4:, :)", {{0, 0, 1, true}, {4, 11, 1, false}, {0, 12, 1, false}}}},
             fData.data(),
             fData.size() * es});

        // The section p(1:12:2, 11:1:-1, :) of a Fortran array p(12, 11, 13):
        // every other element along the first dimension and the second one
        // reversed, so its byte stride is negative.
        sData = reftest::randomData<Case>(12 * 11 * 13, 1001u + static_cast<unsigned>(K));
        ArrayDescriptor s;
        s.kind = K;
        s.elementSize = es;
        s.language = Language::Fortran;
        s.address = reinterpret_cast<std::uintptr_t>(sData.data()) + 10 * 12 * es;
        const auto e = static_cast<std::int64_t>(es);
        s.dims = {{1, 6, 2 * e}, {1, 11, -12 * e}, {1, 13, 12 * 11 * e}};
        layouts.push_back(
            {"Section",
             s,
             {{"", {{1, 6, 1, false}, {1, 11, 1, false}, {1, 13, 1, false}}},
              {"[2:6:2][11:1:-3][::4]", {{2, 6, 2, false}, {11, 1, -3, false}, {1, 13, 4, false}}},
              {"(6:1:-1, 5, 13:1:-1)", {{6, 1, -1, false}, {5, 5, 1, true}, {13, 1, -1, false}}}},
             sData.data(),
             sData.size() * es});
    }

    static RefElement element(const unsigned char* p) {
        RefElement e{};
        e.bytes = p;
        S v;
        std::memcpy(&v, p, sizeof v);
        if constexpr (Case::floating) {
            e.value = static_cast<long double>(v);
            const int c = std::fpclassify(v);
            e.nan = c == FP_NAN;
            e.inf = c == FP_INFINITE;
            e.denorm = c == FP_SUBNORMAL;
            e.zero = c == FP_ZERO;
        } else {
            if constexpr (Case::logical)
                e.value = v != 0 ? 1 : 0;
            else
                e.value = static_cast<long double>(v);
            e.zero = v == 0;
        }
        return e;
    }

    // The selected elements in result order: row-major over the dimensions
    // in declaration order, fixed ones included with their one index.
    static std::vector<RefElement> select(const ArrayDescriptor& a,
                                          const std::vector<RefRange>& ranges) {
        std::vector<RefElement> out;
        std::vector<std::int64_t> k(ranges.size(), 0);
        for (const RefRange& r : ranges)
            if (r.count() <= 0)
                return out;
        for (;;) {
            std::int64_t offset = 0;
            for (std::size_t d = 0; d < ranges.size(); ++d) {
                const std::int64_t index = ranges[d].start + k[d] * ranges[d].stride;
                offset += (index - a.dims[d].lower) * a.dims[d].byteStride;
            }
            out.push_back(element(reinterpret_cast<const unsigned char*>(
                static_cast<std::uintptr_t>(a.address + static_cast<std::uint64_t>(offset)))));
            std::size_t d = ranges.size();
            while (d > 0) {
                --d;
                if (++k[d] < ranges[d].count())
                    break;
                k[d] = 0;
                if (d == 0)
                    return out;
            }
        }
    }

    static void expectNumber(const Number& actual, long double expected, const char* what) {
        if constexpr (Case::floating) {
            ASSERT_TRUE(std::holds_alternative<double>(actual)) << what;
            EXPECT_EQ(std::get<double>(actual), static_cast<double>(expected)) << what;
        } else if constexpr (K == ElementKind::UInt64) {
            ASSERT_TRUE(std::holds_alternative<std::uint64_t>(actual)) << what;
            EXPECT_EQ(std::get<std::uint64_t>(actual), static_cast<std::uint64_t>(expected))
                << what;
        } else {
            ASSERT_TRUE(std::holds_alternative<std::int64_t>(actual)) << what;
            EXPECT_EQ(std::get<std::int64_t>(actual), static_cast<std::int64_t>(expected)) << what;
        }
    }

    void checkStatistics(const LayoutCase& layout, const std::vector<RefElement>& all,
                         const FilterCase& filter, const std::string& sliceText,
                         const StatisticsOptions& options) {
        SCOPED_TRACE("slice '" + sliceText + "' filter '" + filter.text + "'");
        const ArrayDescriptor& a = layout.array;
        BufferReader reader(layout.memory, layout.bytes);
        Result<Statistics> r = computeStatistics(a, reader, sliceText, filter.text, options);
        ASSERT_TRUE(r.ok()) << r.message();
        const Statistics& st = r.value();
        held += st.windowsHeld ? 1 : 0;

        std::vector<unsigned char> packed;
        const std::size_t vb = K == ElementKind::LongDouble ? 10 : es;
        std::uint64_t count = 0, zero = 0, nan = 0, inf = 0, denorm = 0;
        std::vector<long double> finite;
        for (const RefElement& e : all) {
            if (!filter.pass(e))
                continue;
            ++count;
            packed.insert(packed.end(), e.bytes, e.bytes + vb);
            zero += e.zero;
            nan += e.nan;
            inf += e.inf;
            denorm += e.denorm;
            if (!e.nan && !e.inf) {
                // Floating-point statistics are taken in double.
                finite.push_back(Case::floating
                                     ? static_cast<long double>(static_cast<double>(e.value))
                                     : e.value);
            }
        }
        EXPECT_EQ(st.count, count);
        EXPECT_EQ(st.zeroCount, zero);
        EXPECT_EQ(st.nanCount, nan);
        EXPECT_EQ(st.infCount, inf);
        EXPECT_EQ(st.denormCount, denorm);
        EXPECT_EQ(st.checksum,
                  static_cast<std::int64_t>(XXH3_64bits(packed.data(), packed.size())));
        EXPECT_EQ(st.filter, filter.text);
        EXPECT_EQ(st.emptySlice, wholeArraySliceText(a));

        std::uint16_t valid = 0x7;
        if (Case::floating)
            valid |= 0xe000;
        if (!finite.empty())
            valid |= 0x1ff8;
        EXPECT_EQ(st.statValid, valid);
        if (finite.empty())
            return;

        std::sort(finite.begin(), finite.end());
        const double n = static_cast<double>(finite.size());
        expectNumber(st.min, finite.front(), "min");
        expectNumber(st.max, finite.back(), "max");
        if constexpr (Case::floating) {
            long double sum = 0, absSum = 0;
            for (long double x : finite) {
                sum += x;
                absSum += std::fabs(x);
            }
            ASSERT_TRUE(std::holds_alternative<double>(st.sum));
            EXPECT_NEAR(std::get<double>(st.sum), static_cast<double>(sum),
                        1e-13 * static_cast<double>(absSum) + 1e-300);
            EXPECT_NEAR(st.mean, static_cast<double>(sum) / n,
                        1e-13 * static_cast<double>(absSum) / n + 1e-300);
        } else {
            __int128 sum = 0;
            for (long double x : finite)
                sum += static_cast<__int128>(x);
            const bool fits = K == ElementKind::UInt64
                                  ? sum >= 0 && sum <= static_cast<__int128>(~std::uint64_t(0))
                                  : sum >= INT64_MIN && sum <= INT64_MAX;
            if (!fits) {
                ASSERT_TRUE(std::holds_alternative<double>(st.sum)) << "sum beyond 64 bits";
                EXPECT_EQ(std::get<double>(st.sum), static_cast<double>(sum));
            } else {
                expectNumber(st.sum, static_cast<long double>(sum), "sum");
            }
            const double mean = static_cast<double>(static_cast<long double>(sum) / n);
            EXPECT_NEAR(st.mean, mean, 1e-13 * std::fabs(mean) + 1e-300);
        }
        long double mean = 0;
        for (long double x : finite)
            mean += x;
        mean /= static_cast<long double>(finite.size());
        long double m2 = 0;
        for (long double x : finite)
            m2 += (x - mean) * (x - mean);
        const double sd = static_cast<double>(std::sqrt(m2 / static_cast<long double>(n)));
        EXPECT_NEAR(st.stdDev, sd, 1e-10 * (sd + std::fabs(static_cast<double>(mean))) + 1e-300);

        std::vector<double> sorted;
        for (long double x : finite)
            sorted.push_back(static_cast<double>(x));
        auto quantile = [&](double p) {
            return K == ElementKind::LongDouble ? refQuantile(finite, p) : refQuantile(sorted, p);
        };
        const double q1 = quantile(0.25), q2 = quantile(0.5), q3 = quantile(0.75);
        EXPECT_EQ(st.firstQuartile, q1);
        EXPECT_EQ(st.median, q2);
        EXPECT_EQ(st.thirdQuartile, q3);
        const double lowFence = q1 - 1.5 * (q3 - q1), highFence = q3 + 1.5 * (q3 - q1);
        long double lowAdj = finite.back(), highAdj = finite.front();
        for (long double x : finite)
            if (x >= static_cast<long double>(lowFence)) {
                lowAdj = x;
                break;
            }
        for (auto it = finite.rbegin(); it != finite.rend(); ++it)
            if (*it <= static_cast<long double>(highFence)) {
                highAdj = *it;
                break;
            }
        expectNumber(st.lowerAdjValue, lowAdj, "lower adjacent value");
        expectNumber(st.upperAdjValue, highAdj, "upper adjacent value");
    }
};

using Kinds = ::testing::Types<
    KindCase<ElementKind::Int8, std::int8_t>, KindCase<ElementKind::Int16, std::int16_t>,
    KindCase<ElementKind::Int32, std::int32_t>, KindCase<ElementKind::Int64, std::int64_t>,
    KindCase<ElementKind::UInt8, std::uint8_t>, KindCase<ElementKind::UInt16, std::uint16_t>,
    KindCase<ElementKind::UInt32, std::uint32_t>, KindCase<ElementKind::UInt64, std::uint64_t>,
    KindCase<ElementKind::Bool, std::uint8_t, true>, KindCase<ElementKind::Char, char>,
    KindCase<ElementKind::SignedChar, signed char>,
    KindCase<ElementKind::UnsignedChar, unsigned char>, KindCase<ElementKind::WChar, wchar_t>,
    KindCase<ElementKind::Char16, char16_t>, KindCase<ElementKind::Char32, char32_t>,
    KindCase<ElementKind::Float, float>, KindCase<ElementKind::Double, double>,
    KindCase<ElementKind::LongDouble, long double>, KindCase<ElementKind::FortranReal4, float>,
    KindCase<ElementKind::FortranReal8, double>,
    KindCase<ElementKind::FortranInteger1, std::int8_t>,
    KindCase<ElementKind::FortranInteger2, std::int16_t>,
    KindCase<ElementKind::FortranInteger4, std::int32_t>,
    KindCase<ElementKind::FortranInteger8, std::int64_t>,
    KindCase<ElementKind::FortranLogical1, std::uint8_t, true>,
    KindCase<ElementKind::FortranLogical2, std::uint16_t, true>,
    KindCase<ElementKind::FortranLogical4, std::uint32_t, true>,
    KindCase<ElementKind::FortranLogical8, std::uint64_t, true>,
    KindCase<ElementKind::FortranCharacter, unsigned char>>;

TYPED_TEST_SUITE(EngineKinds, Kinds);

TYPED_TEST(EngineKinds, StatisticsMatchReference) {
    StatisticsOptions oneThread = StatisticsOptions::Defaults();
    oneThread.threads = 1;
    // Tiny tiles and a tiny selection budget: many tiles per pass on two
    // threads, and the quantile search needs several histogram passes.
    StatisticsOptions small = StatisticsOptions::Defaults();
    small.threads = 2;
    small.tileBytes = 40;
    small.selectionBytes = 128;
    // Every element in the sample, so the one-pass guess is made wherever
    // enough finite elements pass; the rest falls back as on large arrays.
    StatisticsOptions sampled = small;
    sampled.sampleFrom = 0;
    sampled.sampleSize = std::size_t(1) << 20;
    for (const LayoutCase& layout : this->layouts) {
        SCOPED_TRACE(layout.name);
        for (const SliceCase& sc : layout.slices) {
            const auto all = this->select(layout.array, sc.ranges);
            const std::vector<FilterCase> filters = filterCases();
            for (std::size_t i = 0; i < filters.size(); ++i) {
                // Under the sanitizers every call costs many times more: the
                // one-thread variant there covers the first two filters.
                if (!kSanitized || i < 2)
                    this->checkStatistics(layout, all, filters[i], sc.text, oneThread);
                this->checkStatistics(layout, all, filters[i], sc.text, small);
                this->checkStatistics(layout, all, filters[i], sc.text, sampled);
            }
        }
    }
    // IEEE single and double elements and integers take the one-pass road
    // where enough of them pass; long double and logicals never do.
    const bool onePass = TestFixture::K != ElementKind::LongDouble && !TypeParam::logical;
    if (onePass)
        EXPECT_GT(this->held, 0);
    else
        EXPECT_EQ(this->held, 0);
}

TYPED_TEST(EngineKinds, PlotValuesMatchReference) {
    PlotOptions small = PlotOptions::Defaults();
    small.threads = 2;
    small.tileBytes = 40;
    for (const LayoutCase& layout : this->layouts) {
        for (const SliceCase& sc : layout.slices) {
            const auto all = this->select(layout.array, sc.ranges);
            std::vector<std::int64_t> kept;
            for (const RefRange& r : sc.ranges)
                if (!r.fixed)
                    kept.push_back(r.count());
            for (const FilterCase& f : filterCases()) {
                SCOPED_TRACE(layout.name + " slice '" + sc.text + "' filter '" + f.text + "'");
                BufferReader reader(layout.memory, layout.bytes);
                Result<PlotValues> r = plotValues(layout.array, reader, sc.text, f.text, small);
                ASSERT_TRUE(r.ok()) << r.message();
                std::vector<double> expected;
                for (const RefElement& e : all)
                    if (f.pass(e))
                        expected.push_back(static_cast<double>(e.value));
                ASSERT_EQ(r->values.size(), expected.size());
                for (std::size_t i = 0; i < expected.size(); ++i) {
                    if (std::isnan(expected[i]))
                        EXPECT_TRUE(std::isnan(r->values[i])) << i;
                    else
                        EXPECT_EQ(r->values[i], expected[i]) << i;
                }
                if (f.text.empty()) {
                    EXPECT_EQ(r->rank, static_cast<int>(kept.size()));
                    if (kept.size() == 2) {
                        EXPECT_EQ(r->rows, kept[0]);
                        EXPECT_EQ(r->cols, kept[1]);
                    }
                } else {
                    EXPECT_EQ(r->rank, 1);
                }
            }
        }
    }
}

// The default plane of every slice: its cells are the reference elements,
// and those that fail the filter are empty. The plane is made of the
// dimensions the slice keeps, the last two of a C-form slice and the first
// two of a Fortran-form one, fixed ones making up the pair when fewer are
// kept; rows run along the earlier one.
TYPED_TEST(EngineKinds, TableCellsMatchReference) {
    for (const LayoutCase& layout : this->layouts) {
        for (const SliceCase& sc : layout.slices) {
            const bool cForm =
                sc.text.empty() ? layout.array.language == Language::C : sc.text[0] == '[';
            const std::size_t n = sc.ranges.size();
            std::vector<std::size_t> order;
            for (bool kept : {true, false})
                for (std::size_t k = 0; k < n; ++k) {
                    const std::size_t d = cForm ? n - 1 - k : k;
                    if (sc.ranges[d].fixed != kept)
                        order.push_back(d);
                }
            const std::size_t rowDim = std::min(order[0], order[1]);
            const std::size_t colDim = std::max(order[0], order[1]);
            std::vector<RefRange> plane = sc.ranges;
            for (std::size_t d = 0; d < plane.size(); ++d)
                if (d != rowDim && d != colDim)
                    plane[d] = RefRange{plane[d].start, plane[d].start, 1, true};
            const auto cells = this->select(layout.array, plane);
            for (const FilterCase& f : filterCases()) {
                SCOPED_TRACE(layout.name + " slice '" + sc.text + "' filter '" + f.text + "'");
                TableOptions options = TableOptions::Defaults();
                options.threads = 2;
                options.tileBytes = 64;
                BufferReader reader(layout.memory, layout.bytes);
                Result<Table> r = tableCells(layout.array, reader, sc.text, f.text, options);
                ASSERT_TRUE(r.ok()) << r.message();
                EXPECT_EQ(r->rowDim, static_cast<int>(rowDim));
                EXPECT_EQ(r->colDim, static_cast<int>(colDim));
                EXPECT_EQ(r->rowCount, plane[rowDim].count());
                EXPECT_EQ(r->colCount, plane[colDim].count());
                EXPECT_EQ(r->rowLowerBound, plane[rowDim].start);
                EXPECT_EQ(r->rowStride, plane[rowDim].stride);
                EXPECT_EQ(r->colUpperBound,
                          plane[colDim].start + (plane[colDim].count() - 1) * plane[colDim].stride);
                ASSERT_EQ(r->cells.size(), cells.size());
                for (std::size_t i = 0; i < cells.size(); ++i) {
                    const std::string want =
                        f.pass(cells[i])
                            ? formatElement(TestFixture::K, cells[i].bytes, DataFormat::Automatic)
                            : std::string();
                    EXPECT_EQ(r->cells[i], want) << "cell " << i;
                }
            }
        }
    }
}

} // namespace

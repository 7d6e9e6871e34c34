// Filters: the grammar, class tests in the element's own format, exact
// integer comparisons, and every refusal with its column.
#include "arraylens/filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

using namespace arraylens;

namespace {

template <Repr R, class T> bool passes(const std::string& text, T value) {
    Result<Filter> f = compileFilter(text);
    EXPECT_TRUE(f.ok()) << text << ": " << (f.ok() ? "" : f.message());
    if (!f.ok())
        return false;
    unsigned char bytes[16] = {};
    std::memcpy(bytes, &value, sizeof value);
    return f->template matches<R>(bytes);
}

bool d(const std::string& text, double v) {
    return passes<Repr::F64>(text, v);
}
bool fl(const std::string& text, float v) {
    return passes<Repr::F32>(text, v);
}
bool ld(const std::string& text, long double v) {
    return passes<Repr::F80>(text, v);
}
bool i32(const std::string& text, std::int32_t v) {
    return passes<Repr::I32>(text, v);
}
bool i64(const std::string& text, std::int64_t v) {
    return passes<Repr::I64>(text, v);
}
bool u64(const std::string& text, std::uint64_t v) {
    return passes<Repr::U64>(text, v);
}

std::string refusal(const std::string& text) {
    Result<Filter> f = compileFilter(text);
    EXPECT_FALSE(f.ok()) << "accepted '" << text << "'";
    if (f.ok())
        return "";
    EXPECT_EQ(f.error().code, ErrorCode::BadFilter);
    return f.message();
}

const double kNan = std::numeric_limits<double>::quiet_NaN();
const double kSNan = std::numeric_limits<double>::signaling_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const double kDenorm = std::numeric_limits<double>::denorm_min();

TEST(Filter, EmptyTextPassesEverything) {
    Result<Filter> f = compileFilter("  ");
    ASSERT_TRUE(f.ok());
    EXPECT_TRUE(f->empty());
    EXPECT_TRUE(d("", kNan));
}

TEST(Filter, TextAsAppliedHasNoSurroundingBlanks) {
    Result<Filter> f = compileFilter("  $value > 1 ");
    ASSERT_TRUE(f.ok());
    EXPECT_EQ(f->text(), "$value > 1");
}

TEST(Filter, ComparisonsAndMissingLeftSide) {
    EXPECT_TRUE(d("$value > 1", 2));
    EXPECT_FALSE(d("$value > 1", 1));
    EXPECT_TRUE(d(">= 1", 1));
    EXPECT_TRUE(d("< 0", -0.5));
    EXPECT_TRUE(d("==2.5", 2.5));
    EXPECT_TRUE(d("!= 2.5", 2.4));
    EXPECT_TRUE(d("1 < $value", 2));
    EXPECT_TRUE(d("$value .GT. 1 .And. $value .le. 3", 3));
    EXPECT_FALSE(d("$value .gt. 1 .and. $value .LE. 3", 3.5));
    EXPECT_TRUE(d("$value .eq. 1e3", 1000));
    EXPECT_TRUE(d("$value .ne. 0x10", 15));
    EXPECT_TRUE(d("$value .lt. .5", 0.25));
    EXPECT_TRUE(d("$value .ge. 2E-1", 0.2));
}

TEST(Filter, ArithmeticAndPrecedence) {
    EXPECT_TRUE(d("$value * 2 + 1 > 7", 3.5));
    EXPECT_FALSE(d("$value * 2 + 1 > 7", 3));
    EXPECT_TRUE(d("-$value >= 3", -3));
    EXPECT_TRUE(d("($value + 1) / 2 == 3", 5));
    EXPECT_TRUE(d("abs($value - 10) <= 2", 8));
    EXPECT_FALSE(d("abs($value - 10) <= 2", 7.5));
    EXPECT_TRUE(d("2 - 3 - 4 == $value", -5)); // left to right
    EXPECT_TRUE(d("$value == 2 + 3 * 4", 14));
    // && binds tighter than ||.
    EXPECT_TRUE(d("$value > 0 || $value < -5 && $value > -3", 1));
    EXPECT_FALSE(d("$value > 0 || $value < -5 && $value > -3", -4));
    EXPECT_FALSE(d("($value > 0 || $value < -5) && $value > -3", -6));
    EXPECT_TRUE(d("!($value > 0)", -1));
    EXPECT_TRUE(d(".not. $value > 0", -1));
    EXPECT_TRUE(d("!!($value > 0)", 1));
    EXPECT_TRUE(d("$value > 0 .or. $value < -5", -6));
}

TEST(Filter, ClassTestsAreNotIeeeArithmetic) {
    EXPECT_TRUE(d("$value == $nan", kNan));
    EXPECT_TRUE(d("$value == $nan", -kNan));
    EXPECT_TRUE(d("$value == $nan", kSNan));
    EXPECT_FALSE(d("$value != $nan", kNan));
    EXPECT_TRUE(d("$value != $nan", 1));
    EXPECT_TRUE(d("$value == $nanq", kNan));
    EXPECT_TRUE(d("$value == $qnan", kNan));
    EXPECT_FALSE(d("$value == $qnan", kSNan));
    EXPECT_TRUE(d("$value == $nans", kSNan));
    EXPECT_TRUE(d("$value == $snan", kSNan));
    EXPECT_FALSE(d("$value == $snan", kNan));
    EXPECT_TRUE(d("$value == $inf", kInf));
    EXPECT_TRUE(d("$value == $inf", -kInf));
    EXPECT_TRUE(d("$value == $pinf", kInf));
    EXPECT_FALSE(d("$value == $pinf", -kInf));
    EXPECT_TRUE(d("$value == $ninf", -kInf));
    EXPECT_TRUE(d("$value == $denorm", kDenorm));
    EXPECT_TRUE(d("$value == $denorm", -kDenorm));
    EXPECT_FALSE(d("$value == $denorm", 0.0));
    EXPECT_TRUE(d("$value == $pdenorm", kDenorm));
    EXPECT_FALSE(d("$value == $pdenorm", -kDenorm));
    EXPECT_TRUE(d("$value == $ndenorm", -kDenorm));
    EXPECT_TRUE(d("$nan == $value", kNan)); // either side
    EXPECT_TRUE(d("== $nan", kNan));        // missing left side
    // The signed infinities are numbers too.
    EXPECT_TRUE(d("$value < $pinf", 1e308));
    EXPECT_FALSE(d("$value < $pinf", kInf));
    EXPECT_TRUE(d("$value > $ninf", -1e308));
    // IEEE comparisons with NaN stay false, except !=.
    EXPECT_FALSE(d("$value > 0", kNan));
    EXPECT_FALSE(d("$value <= 0", kNan));
    EXPECT_TRUE(d("$value != $value", kNan));
    EXPECT_FALSE(d("$value == $value", kNan));
}

TEST(Filter, ClassesInTheElementsOwnFormat) {
    // 1e-40 is subnormal as a float, normal as a double.
    EXPECT_TRUE(fl("$value == $denorm", 1e-40f));
    EXPECT_FALSE(d("$value == $denorm", 1e-40));
    EXPECT_TRUE(fl("$value == $snan", std::numeric_limits<float>::signaling_NaN()));
    // 1e-4940 is an x87 subnormal and not representable as a double.
    EXPECT_TRUE(ld("$value == $pdenorm", 1e-4940L));
    EXPECT_TRUE(ld("$value == $nanq", std::numeric_limits<long double>::quiet_NaN()));
    EXPECT_TRUE(ld("$value == $nans", std::numeric_limits<long double>::signaling_NaN()));
    EXPECT_TRUE(ld("$value == $ninf", -std::numeric_limits<long double>::infinity()));
    // Long double comparisons keep their precision: 1 + 2^-60 > 1.
    EXPECT_TRUE(ld("$value > 1", 1.0L + std::ldexp(1.0L, -60)));
}

TEST(Filter, IntegersNeverBelongToAClass) {
    EXPECT_FALSE(i32("$value == $nan", 0));
    EXPECT_TRUE(i32("$value != $nan", 0));
    EXPECT_FALSE(i32("$value == $denorm", 1));
    EXPECT_FALSE(i32("$value == $inf", 0x7fffffff));
    EXPECT_TRUE(i32("$value < $pinf", 0x7fffffff));
}

TEST(Filter, IntegerComparisonsAreExact) {
    // 2^53 + 1 is not a double; a double comparison would call it 2^53.
    EXPECT_TRUE(i64("$value == 9007199254740993", 9007199254740993LL));
    EXPECT_FALSE(i64("$value == 9007199254740992", 9007199254740993LL));
    EXPECT_TRUE(i64("$value > 9007199254740992", 9007199254740993LL));
    EXPECT_TRUE(
        i64("$value == -9223372036854775807 - 1", std::numeric_limits<std::int64_t>::min()));
    EXPECT_TRUE(u64("$value == 0xffffffffffffffff", ~std::uint64_t(0)));
    EXPECT_TRUE(u64("$value > 18446744073709551614", ~std::uint64_t(0)));
    EXPECT_FALSE(u64("$value > 18446744073709551615", ~std::uint64_t(0)));
    EXPECT_TRUE(u64("$value + 1 == 18446744073709551616", ~std::uint64_t(0)));
    // Integer against fraction, exactly.
    EXPECT_TRUE(i32("$value < 2.5", 2));
    EXPECT_FALSE(i32("$value == 2.5", 2));
    EXPECT_TRUE(i32("$value / 2 == 1.5", 3));
    EXPECT_TRUE(i64("$value > 9007199254740992.0", 9007199254740993LL));
    EXPECT_TRUE(
        i64("abs($value) == 9223372036854775808", std::numeric_limits<std::int64_t>::min()));
}

TEST(FilterRefusal, MessagesNameTheColumn) {
    EXPECT_EQ(refusal("$value <"),
              "Filter error at column 9: expected a number or $value after '<'.");
    EXPECT_EQ(refusal("$value < )"),
              "Filter error at column 10: expected a number or $value after '<'.");
    EXPECT_EQ(refusal("$value > $foo"), "Filter error at column 10: unknown name '$foo'.");
    EXPECT_EQ(refusal("$value .xor. 1"), "Filter error at column 8: unknown operator '.xor.'.");
    EXPECT_EQ(refusal("$value = 1"), "Filter error at column 8: unexpected '='; write '=='.");
    EXPECT_EQ(refusal("$value > 1 & $value < 2"),
              "Filter error at column 12: unexpected '&'; write '&&'.");
    EXPECT_EQ(refusal("$value # 1"), "Filter error at column 8: unexpected character '#'.");
    EXPECT_EQ(refusal("$value > 1e"), "Filter error at column 10: cannot read the number '1e'.");
    EXPECT_EQ(refusal("$value > 12abc"),
              "Filter error at column 10: cannot read the number '12abc'.");
    EXPECT_EQ(refusal("$value > 0x"), "Filter error at column 10: cannot read the number '0x'.");
    EXPECT_EQ(refusal("$value > 0x12345678123456781"),
              "Filter error at column 10: the number '0x12345678123456781...' is too large.");
    EXPECT_EQ(refusal("!"), "Filter error at column 2: expected a condition after '!'.");
    EXPECT_EQ(refusal("$value + 1"),
              "Filter error at column 11: expected a comparison such as '> 0' after '1'.");
    EXPECT_EQ(refusal("$value $value"),
              "Filter error at column 8: expected a comparison operator before '$value'.");
    EXPECT_EQ(refusal("($value > 1"), "Filter error at column 12: expected ')'.");
    EXPECT_EQ(refusal("$value > 1)"), "Filter error at column 11: unexpected ')'.");
    EXPECT_EQ(refusal("$value < $nan"),
              "Filter error at column 10: $nan can only be compared with == or !=.");
    EXPECT_EQ(refusal("$value + $denorm > 1"),
              "Filter error at column 10: $denorm can only be compared with == or !=.");
    EXPECT_EQ(refusal("$nan == $inf"),
              "Filter error at column 9: compare an element with $inf, not two classes.");
    EXPECT_EQ(refusal("abs $value > 1"), "Filter error at column 5: expected '(' after 'abs'.");
    EXPECT_EQ(refusal("&& $value > 1"), "Filter error at column 1: unexpected '&&'.");
    EXPECT_EQ(refusal("$value > 1 ||"),
              "Filter error at column 14: expected a condition after '||'.");
}

} // namespace

namespace {

// The flattened form that runs per element gives the tree's answer for
// every filter and value.
TEST(Filter, FlatFormAgreesWithTheTree) {
    const char* filters[] = {
        "$value > 1",
        "$value >= -20 .and. $value .ne. $nan",
        "abs($value) < 100 || $value == $inf",
        "$value > 9223372036854775806 || $value < -5",
        "$value == $denorm || $value == $ninf || $value != $value",
        "!($value * 2 + 1 > 7) && -$value <= 3",
        "($value + 1) / 2 == 3 .or. abs($value - 10) <= 2",
        "2 + 3 * 4 == $value",
        "$value / 0 == $inf",
        "$value - $value != $nan",
        "$value < $pinf && $value > $ninf",
        "$value == 9007199254740993",
        "$value != 0.1",
        "!!!($value == $qnan) || $value == $snan",
    };
    const double values[] = {0.0,
                             -0.0,
                             1.0,
                             5.0,
                             -5.0,
                             -20.0,
                             14.0,
                             8.0,
                             0.1,
                             1e300,
                             -1e300,
                             9007199254740992.0,
                             9007199254740994.0,
                             9223372036854775807.0,
                             kDenorm,
                             -kDenorm,
                             kInf,
                             -kInf,
                             kNan,
                             kSNan};
    const std::int64_t ints[] = {0,
                                 1,
                                 -5,
                                 -6,
                                 14,
                                 100,
                                 9007199254740993LL,
                                 9223372036854775807LL,
                                 std::numeric_limits<std::int64_t>::min()};
    for (const char* text : filters) {
        Result<Filter> f = compileFilter(text);
        ASSERT_TRUE(f.ok()) << text << ": " << f.message();
        for (double v : values) {
            unsigned char bytes[8];
            std::memcpy(bytes, &v, 8);
            const unsigned cls = ReprTraits<Repr::F64>::classify(bytes);
            EXPECT_EQ(f->matchesDouble(v, cls), f->matchesTree(0, v, false, cls))
                << text << " with " << v;
        }
        for (std::int64_t v : ints)
            EXPECT_EQ(f->matchesInteger(v), f->matchesTree(v, 0, true, 0)) << text << " with " << v;

        // Whole blocks, read with a stride, give the same answers.
        const std::size_t nd = sizeof values / sizeof values[0];
        std::vector<double> spread(2 * nd);
        for (std::size_t k = 0; k < nd; ++k)
            spread[2 * k] = values[k];
        unsigned char pass[Filter::kBlock];
        f->matchBlock<Repr::F64>(reinterpret_cast<const unsigned char*>(spread.data()), 16, nd,
                                 pass);
        for (std::size_t k = 0; k < nd; ++k) {
            unsigned char bytes[8];
            std::memcpy(bytes, &values[k], 8);
            EXPECT_EQ(pass[k] != 0,
                      f->matchesTree(0, values[k], false, ReprTraits<Repr::F64>::classify(bytes)))
                << "block: " << text << " with " << values[k];
        }
        const std::size_t ni = sizeof ints / sizeof ints[0];
        f->matchBlock<Repr::I64>(reinterpret_cast<const unsigned char*>(ints), 8, ni, pass);
        for (std::size_t k = 0; k < ni; ++k)
            EXPECT_EQ(pass[k] != 0, f->matchesTree(ints[k], 0, true, 0))
                << "block: " << text << " with " << ints[k];
    }
    EXPECT_TRUE(compileFilter("$value > 1")->flattened(false));
    EXPECT_TRUE(compileFilter("$value > 1 && $value != $nan")->flattened(true));
    EXPECT_TRUE(compileFilter("abs($value - 10) <= 2")->flattened(false));
    EXPECT_FALSE(compileFilter("abs($value - 10) <= 2")->flattened(true));
    EXPECT_FALSE(compileFilter("$value == 9007199254740993")->flattened(false));
    EXPECT_FALSE(compileFilter("2 + 3 * 4 == $value")->flattened(false));
}

} // namespace

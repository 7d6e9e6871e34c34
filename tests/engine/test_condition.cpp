// Conditions over statistic names: what they mean, and the words of every
// refusal.
#include "arraylens/condition.h"
#include "arraylens/statvalues.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

using namespace arraylens;

namespace {

using Values = std::vector<std::optional<long double>>;

// Values by name over the statistic names; absent names have no value.
Values values(std::initializer_list<std::pair<const char*, long double>> given) {
    Values v(statisticNames().size());
    for (const auto& g : given)
        for (std::size_t i = 0; i < v.size(); ++i)
            if (statisticNames()[i] == g.first)
                v[i] = g.second;
    return v;
}

bool holds(const std::string& text, const Values& v) {
    Result<Condition> c = compileCondition(text, statisticNames());
    EXPECT_TRUE(c.ok()) << text << ": " << c.message();
    return c.ok() && c->holds(v);
}

std::string refusal(const std::string& text) {
    Result<Condition> c = compileCondition(text, statisticNames());
    EXPECT_FALSE(c.ok()) << text;
    return c.ok() ? std::string() : c.message();
}

TEST(Condition, ComparisonsAndJoins) {
    const Values v = values({{"NanCount", 0}, {"Max", 2e6}, {"InfCount", 0}, {"Mean", -3.5}});
    EXPECT_FALSE(holds("NanCount > 0", v));
    EXPECT_TRUE(holds("NanCount == 0", v));
    EXPECT_TRUE(holds("Max > 1e6 || InfCount > 0", v));
    EXPECT_FALSE(holds("Max > 1e6 && InfCount > 0", v));
    EXPECT_TRUE(holds("abs(Mean) > 3", v));
    EXPECT_TRUE(holds("!(NanCount > 0)", v));
    EXPECT_TRUE(holds("NanCount .eq. 0 .and. .not. Max .lt. 1e6", v));
    EXPECT_TRUE(holds("NanCount.EQ.0.OR.Max.gt.3", v));
    EXPECT_TRUE(holds("(Max - 2e6) * 2 + 1 == 1", v));
    EXPECT_TRUE(holds("-Mean / 2 >= 1.75", v));
    EXPECT_TRUE(holds("((NanCount == 0)) && (abs(Mean + 0.5) == 3)", v));
    // && binds tighter than ||.
    EXPECT_TRUE(holds("Max < 0 && Max < 0 || NanCount == 0", v));
    EXPECT_FALSE(holds("Max < 0 && (Max < 0 || NanCount == 0)", v));
}

TEST(Condition, NumbersAreExact) {
    const Values v = values({{"Checksum", 9007199254740993.0L}, {"Mean", 0.1}, {"Count", 255}});
    EXPECT_TRUE(holds("Checksum == 9007199254740993", v));
    EXPECT_FALSE(holds("Checksum == 9007199254740992", v));
    EXPECT_TRUE(holds("Mean == 0.1", v));
    EXPECT_TRUE(holds("Count == 0xff", v));
    EXPECT_TRUE(holds("Count == 2.55e2", v));
    EXPECT_TRUE(holds("Count > .5", v));
    EXPECT_TRUE(holds("Checksum .eq. 9007199254740993.or.Count.lt.0", v));
    const Values big = values({{"Sum", 18446744073709551615.0L}});
    EXPECT_TRUE(holds("Sum == 18446744073709551615", big));
    EXPECT_FALSE(holds("Sum == 18446744073709551614", big));
}

TEST(Condition, AStatisticWithoutValueSatisfiesNoComparison) {
    const Values v = values({{"Count", 0}}); // Min has no value
    EXPECT_FALSE(holds("Min > 0", v));
    EXPECT_FALSE(holds("Min <= 0", v));
    EXPECT_FALSE(holds("Min != 0", v));
    EXPECT_TRUE(holds("!(Min > 0)", v));
    EXPECT_TRUE(holds("Min > 0 || Count == 0", v));
}

TEST(Condition, RefusalsNameTheColumn) {
    EXPECT_EQ(refusal(""), "The condition is empty.");
    EXPECT_EQ(refusal("   "), "The condition is empty.");
    EXPECT_EQ(refusal("NanCount > "),
              "Condition error at column 11: expected a number or a name after '>'.");
    EXPECT_EQ(refusal("NanCount"), "Condition error at column 1: the condition is a number, not "
                                   "a comparison; write for example 'NanCount > 0'.");
    EXPECT_EQ(refusal("Max > 1 && 3"),
              "Condition error at column 12: '&&' joins comparisons; this side is a number.");
    EXPECT_EQ(refusal("(Max > 1) + 2 > 0"),
              "Condition error at column 1: '+' takes numbers; this side is a comparison.");
    EXPECT_EQ(refusal("Max > 1 > 0"), "Condition error at column 9: unexpected '>'.");
    EXPECT_EQ(refusal("(Max > 1"), "Condition error at column 9: expected ')' at the end.");
    EXPECT_EQ(refusal("Max > 1e"), "Condition error at column 7: cannot read the number.");
    EXPECT_EQ(refusal("Max > $nan"),
              "Condition error at column 7: expected a number or a name, not '$'.");
    EXPECT_EQ(refusal("!Max"), "Condition error at column 1: '!' takes a comparison, not a "
                               "number.");
}

TEST(Condition, UnknownNamesListTheValidOnes) {
    EXPECT_EQ(refusal("NaNCount > 0"),
              "Condition error at column 1: unknown name 'NaNCount'; the names are Checksum, "
              "Count, ZeroCount, Sum, Min, Max, Median, Mean, StdDev, FirstQuartile, "
              "ThirdQuartile, LowerAdjValue, UpperAdjValue, NanCount, InfCount, DenormCount.");
}

TEST(Condition, DepthIsBoundedAndLengthIsNot) {
    std::string deep = "Max > ";
    for (int i = 0; i < 100000; ++i)
        deep += "(";
    deep += "1";
    EXPECT_EQ(refusal(deep), "Condition error at column 71: the condition nests more than 64 "
                             "levels deep.");
    std::string nots(100000, '!');
    EXPECT_NE(refusal(nots + "(Max > 1)").find("nests more than 64 levels"), std::string::npos);
    // Just inside the limit.
    std::string inside = std::string(63, '(') + "Max > 1" + std::string(63, ')');
    EXPECT_TRUE(holds(inside, values({{"Max", 2}})));
    // A long flat condition is no deeper than a short one, and evaluates
    // without recursion.
    std::string flat = "Max";
    for (int i = 0; i < 200000; ++i)
        flat += " + 1";
    flat += " == 200002";
    EXPECT_TRUE(holds(flat, values({{"Max", 2}})));
    std::string ors = "Max < 0";
    for (int i = 0; i < 100000; ++i)
        ors += " || Max < 0";
    EXPECT_FALSE(holds(ors, values({{"Max", 2}})));
}

TEST(Condition, NamesUsedAreListedOnce) {
    Result<Condition> c = compileCondition("Max > 1 || Max < -1 || NanCount > 0", statisticNames());
    ASSERT_TRUE(c.ok());
    EXPECT_EQ(c->namesUsed(), (std::vector<std::size_t>{5, 13}));
    EXPECT_EQ(c->text(), "Max > 1 || Max < -1 || NanCount > 0");
}

} // namespace

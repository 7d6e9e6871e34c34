// What people type, at any length and depth: filters and slices answer with
// a result or a refusal in words, never by running out of stack; messages
// quote at most about 80 characters around the column, and show every
// character as it was typed.
#include "arraylens/filter.h"
#include "arraylens/slice.h"
#include "arraylens/textquote.h"

#include <gtest/gtest.h>

#include <string>

using namespace arraylens;

namespace {

const std::string kTooDeep = "The filter is nested too deeply (more than 256 levels).";

std::string repeat(const std::string& piece, std::size_t times) {
    std::string s;
    s.reserve(piece.size() * times);
    for (std::size_t k = 0; k < times; ++k)
        s += piece;
    return s;
}

std::string filterRefusal(const std::string& text) {
    Result<Filter> f = compileFilter(text);
    EXPECT_FALSE(f.ok()) << "accepted a filter of " << text.size() << " bytes";
    if (f.ok())
        return "";
    EXPECT_EQ(f.error().code, ErrorCode::BadFilter);
    return f.message();
}

bool passesDouble(const Filter& f, double v) {
    return f.matches<Repr::F64>(reinterpret_cast<const unsigned char*>(&v));
}

TEST(FilterDepth, NegationsAndParenthesesOfAnyDepthAreRefusedInWords) {
    // The crash inputs: 17,000 negations and 20,000 parentheses took the
    // process down; 10^5 levels now get the same words.
    for (std::size_t levels : {257u, 17'000u, 100'000u}) {
        SCOPED_TRACE(levels);
        EXPECT_EQ(filterRefusal(repeat("!", levels) + "$value > 0"), kTooDeep);
        EXPECT_EQ(filterRefusal(repeat(".not. ", levels) + "$value > 0"), kTooDeep);
        EXPECT_EQ(filterRefusal(repeat("(", levels) + "$value > 0" + repeat(")", levels)),
                  kTooDeep);
        // Parentheses that are never closed, and arithmetic ones.
        EXPECT_EQ(filterRefusal(repeat("(", levels)), kTooDeep);
        EXPECT_EQ(filterRefusal("$value > " + repeat("(", levels) + "1" + repeat(")", levels)),
                  kTooDeep);
        EXPECT_EQ(filterRefusal("$value > " + repeat("abs(", levels) + "1" + repeat(")", levels)),
                  kTooDeep);
    }
    // Levels of both kinds together count alike.
    EXPECT_EQ(filterRefusal(repeat("!(", 200) + "$value > 0" + repeat(")", 200)), kTooDeep);
    Result<Filter> mixed = compileFilter(repeat("!(", 128) + "$value > 0" + repeat(")", 128));
    ASSERT_TRUE(mixed.ok()) << mixed.message();
    EXPECT_TRUE(passesDouble(*mixed, 1.0));
    // A million characters of one kind, as pasted.
    EXPECT_EQ(filterRefusal(repeat("!", 1'000'000)), kTooDeep);
    EXPECT_EQ(filterRefusal(repeat("(", 1'000'000)), kTooDeep);
    EXPECT_EQ(filterRefusal(repeat("-(", 500'000)), kTooDeep);
}

TEST(FilterDepth, TheLimitItselfIsAccepted) {
    Result<Filter> nots = compileFilter(repeat("!", 256) + "$value > 0");
    ASSERT_TRUE(nots.ok()) << nots.message();
    EXPECT_TRUE(passesDouble(*nots, 1.0));
    EXPECT_FALSE(passesDouble(*nots, -1.0));
    Result<Filter> odd = compileFilter(repeat("!", 255) + "$value > 0");
    ASSERT_TRUE(odd.ok()) << odd.message();
    EXPECT_FALSE(passesDouble(*odd, 1.0));
    EXPECT_TRUE(passesDouble(*odd, -1.0));

    Result<Filter> parens = compileFilter(repeat("(", 256) + "$value > 2" + repeat(")", 256));
    ASSERT_TRUE(parens.ok()) << parens.message();
    EXPECT_TRUE(passesDouble(*parens, 3.0));
    EXPECT_FALSE(passesDouble(*parens, 2.0));

    // Right-nested conditions need a deep evaluation stack: the tree walk
    // and the block form must agree with the plain answer.
    std::string nested;
    for (int k = 0; k < 200; ++k)
        nested += "$value == " + std::to_string(k) + " || (";
    nested += "$value == 1000" + repeat(")", 200);
    Result<Filter> deep = compileFilter(nested);
    ASSERT_TRUE(deep.ok()) << deep.message();
    for (double v : {0.0, 57.0, 199.0, 200.0, 1000.0, -1.0}) {
        const bool expected = (v >= 0 && v < 200) || v == 1000;
        EXPECT_EQ(passesDouble(*deep, v), expected) << v;
        EXPECT_EQ(deep->matchesTree(0, v, false, 0), expected) << v;
        EXPECT_EQ(deep->matchesLongDouble(v, 0), expected) << v;
    }
    for (std::int64_t v : {0, 150, 1000, 999})
        EXPECT_EQ(deep->matchesInteger(v), (v >= 0 && v < 200) || v == 1000) << v;
}

TEST(FilterLength, AMillionCharactersOfConditionsRun) {
    // A flat chain is long, not deep: it is no error, and its tree of
    // 70,000 comparisons is walked without recursion.
    const std::string piece = "$value == 7 || ";
    std::string chain = repeat(piece, 1'000'000 / piece.size()) + "$value == 9";
    ASSERT_GE(chain.size(), 1'000'000u);
    Result<Filter> f = compileFilter(chain);
    ASSERT_TRUE(f.ok()) << f.message();
    EXPECT_TRUE(passesDouble(*f, 7.0));
    EXPECT_TRUE(passesDouble(*f, 9.0));
    EXPECT_FALSE(passesDouble(*f, 8.0));
    EXPECT_TRUE(f->matchesTree(0, 9.0, false, 0));
    EXPECT_FALSE(f->matchesLongDouble(8.0L, 0));
    EXPECT_TRUE(f->matchesInteger(7));
    EXPECT_FALSE(f->matchesInteger(8));

    // A sum of 200,000 ones, exact in the integer arithmetic.
    const std::size_t ones = 200'000;
    const std::string sum = "$value == " + repeat("1+", ones - 1) + "1";
    Result<Filter> s = compileFilter(sum);
    ASSERT_TRUE(s.ok()) << s.message();
    EXPECT_TRUE(s->matchesInteger(static_cast<std::int64_t>(ones)));
    EXPECT_FALSE(s->matchesInteger(static_cast<std::int64_t>(ones) - 1));
    EXPECT_TRUE(s->matchesLongDouble(static_cast<long double>(ones), 0));
}

TEST(FilterLength, LongWordsAreQuotedShort) {
    const std::string name(1'000'000, 'x');
    const std::string m = filterRefusal("$value > " + name);
    EXPECT_EQ(m, "Filter error at column 10: unknown name '" + std::string(80, 'x') +
                     "\xe2\x80\xa6'.");
    const std::string number = filterRefusal("$value > " + std::string(1'000'000, '7') + "q");
    EXPECT_LT(number.size(), 200u);
    EXPECT_EQ(number.rfind("Filter error at column 10: cannot read the number '7777", 0), 0u)
        << number;
    // The column of a mistake at the end of a million characters.
    const std::string tail = filterRefusal(repeat("$value > 1 && ", 70'000) + "$value >");
    EXPECT_EQ(tail, "Filter error at column 980009: expected a number or $value after '>'.");
}

TEST(FilterText, NonAsciiCharactersAreShownAsTyped) {
    EXPECT_EQ(filterRefusal("$value > \xc3\xa9"),
              "Filter error at column 10: unexpected character '\xc3\xa9'.");
    EXPECT_EQ(filterRefusal("$value \xe2\x89\xa5 1"),
              "Filter error at column 8: unexpected character '\xe2\x89\xa5'.");
    EXPECT_EQ(filterRefusal("\xf0\x9f\x98\x80"),
              "Filter error at column 1: unexpected character '\xf0\x9f\x98\x80'.");
    // A byte that starts no character is shown alone.
    EXPECT_EQ(filterRefusal("$value > \xff"),
              "Filter error at column 10: unexpected character '\xff'.");
}

ArrayDescriptor line(std::int64_t n) {
    return ArrayDescriptor::cArray(ElementKind::Int32, 0x1000, {n});
}

std::string sliceRefusal(const std::string& text, const ArrayDescriptor& a) {
    Result<Slice> r = parseSlice(text, a);
    EXPECT_FALSE(r.ok()) << "accepted a slice of " << text.size() << " bytes";
    return r.ok() ? "" : r.message();
}

TEST(SliceText, LongSlicesAreQuotedAroundTheColumn) {
    const ArrayDescriptor a = line(10);
    // 100 KB of dimensions and then a mistake: the message stays short and
    // shows the text around the mistake.
    const std::string text = repeat("[0:1]", 20'000) + "[0:1";
    const std::string m = sliceRefusal(text, a);
    EXPECT_EQ(m, "Cannot read the slice '\xe2\x80\xa6]" + repeat("[0:1]", 15) + "[0:1' at column " +
                     std::to_string(text.size() + 1) + ": expected ']'.");
    // A mistake at the start shows the first 80 characters.
    const std::string start = sliceRefusal("[x" + repeat("[0:1]", 20'000), a);
    EXPECT_EQ(start, "Cannot read the slice '[x" + repeat("[0:1]", 15) +
                         "[0:\xe2\x80\xa6' at column 2: expected an index or ':'.");
    // A million characters of dimensions is a count, not a crash.
    EXPECT_EQ(sliceRefusal(repeat("[1]", 333'334), a),
              "Slice has 333334 dimensions but the array has 1.");
    EXPECT_EQ(sliceRefusal(repeat("(", 1'000'000), a),
              "Cannot read the slice '" + repeat("(", 80) +
                  "\xe2\x80\xa6' at column 2: expected an index or ':'.");
}

TEST(SliceText, ColumnsCountCharactersNotBytes) {
    const ArrayDescriptor a = line(10);
    EXPECT_EQ(sliceRefusal("[1:2]\xc3\xa9", a),
              "Cannot read the slice '[1:2]\xc3\xa9' at column 6: expected '['.");
    EXPECT_EQ(sliceRefusal("[\xe2\x88\x92"
                           "1]",
                           a),
              "Cannot read the slice '[\xe2\x88\x92"
              "1]' at column 2: expected an index or ':'.");
    // The window is cut between characters, never inside one.
    const std::string wide = repeat("\xc3\xa9", 100) + "[0]";
    const std::string m = sliceRefusal(wide, a);
    EXPECT_EQ(m, "Cannot read the slice '" + repeat("\xc3\xa9", 80) +
                     "\xe2\x80\xa6' at column 1: expected '[' or '('.");
}

TEST(Quote, WindowAroundTheColumn) {
    const std::string eighty(80, 'a');
    EXPECT_EQ(quoteAround(eighty, 1), eighty);
    EXPECT_EQ(quoteAround(eighty + "b", 1), eighty + "\xe2\x80\xa6");
    EXPECT_EQ(quoteAround("b" + eighty, 81), "\xe2\x80\xa6" + eighty);
    // In the middle: 40 characters before the column, 40 from it.
    const std::string text = std::string(100, 'a') + "X" + std::string(100, 'b');
    EXPECT_EQ(quoteAround(text, 101),
              "\xe2\x80\xa6" + std::string(40, 'a') + "X" + std::string(39, 'b') + "\xe2\x80\xa6");
    EXPECT_EQ(charCount("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"), 4u);
    EXPECT_EQ(charColumn("\xc3\xa9\xc3\xa9x", 4), 3u);
    // Malformed sequences count byte by byte.
    EXPECT_EQ(charCount("\xc3\xc3\x80\xed\xa0\x80"), 5u);
}

} // namespace

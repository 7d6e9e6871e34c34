// libFuzzer target for conditions over statistic names. Besides "no crash,
// no runaway recursion" (the sanitizers watch those) it checks that every
// refusal is in words that name a column, and that a condition that
// compiles evaluates, with and without values.
#include "arraylens/condition.h"
#include "arraylens/statvalues.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "fuzz_condition: property violated: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace arraylens;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Result<Condition> c = compileCondition(text, statisticNames());
    if (!c.ok()) {
        const std::string& m = c.message();
        check(m == "The condition is empty." || m.rfind("Condition error at column ", 0) == 0,
              "a refusal names its column");
        return 0;
    }
    std::vector<std::optional<long double>> none(statisticNames().size());
    std::vector<std::optional<long double>> some(statisticNames().size());
    for (std::size_t i = 0; i < some.size(); ++i)
        some[i] = static_cast<long double>(i) - 3.5L;
    (void)c->holds(none);
    (void)c->holds(some);
    return 0;
}

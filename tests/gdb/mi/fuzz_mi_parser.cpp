// libFuzzer target for the MI parser. Besides "no crash, no out-of-bounds
// read, no runaway recursion" (the sanitizers watch those) it checks two
// properties on every input:
//  - a line that parses, written back with toMi(), parses to the same record;
//  - quoteCString() of any bytes is one line that decodes to the same bytes.
#include "MiParser.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "fuzz_gdb_mi: property violated: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace arraylens::mi;
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const Record record = parseLine(input);
    if (record.isMalformed()) {
        check(!record.error.empty(), "a malformed record says what is wrong");
        check(record.column >= 1 && record.column <= size + 1, "error column inside the line");
    } else {
        const std::string written = record.toMi();
        const Record again = parseLine(written);
        check(!again.isMalformed(), "written record parses");
        check(again.kind == record.kind, "kind survives");
        check(again.token == record.token, "token survives");
        check(again.klass == record.klass, "class survives");
        check(again.text == record.text, "stream text survives");
        check(again.results == record.results, "results survive");
        // Path lookups on arbitrary text must stay safe too.
        const std::string_view path = input.substr(0, 64);
        (void)record.results.find(path);
    }

    const std::string quoted = quoteCString(input);
    check(quoted.find('\n') == std::string::npos && quoted.find('\r') == std::string::npos,
          "quoted text is a single line");
    const auto decoded = parseCString(quoted);
    check(decoded.has_value() && *decoded == input, "quoted text decodes to the input");
    return 0;
}

// quoteCString() against the real thing: the quoted text goes through gdb's
// own MI command reader and comes back in gdb's own MI output, which our
// parser decodes. Skipped when no gdb is installed.
#include "MiParser.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace arraylens::mi;

bool haveGdb() {
    return std::system("gdb --version >/dev/null 2>&1") == 0;
}

// Runs gdb in MI mode on the given command lines and returns its output lines.
std::vector<std::string> runGdb(const std::vector<std::string>& commands) {
    char path[] = "/tmp/arraylens-mi-quote-XXXXXX";
    const int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    if (fd < 0)
        return {};
    close(fd);
    {
        std::ofstream out(path, std::ios::binary);
        for (const auto& c : commands)
            out << c << '\n';
        out << "-gdb-exit\n";
    }
    const std::string cmd = std::string("gdb --interpreter=mi3 -q -nx < ") + path + " 2>&1";
    std::vector<std::string> lines;
    if (FILE* p = popen(cmd.c_str(), "r")) {
        std::string line;
        int c;
        while ((c = std::fgetc(p)) != EOF) {
            if (c == '\n') {
                lines.push_back(line);
                line.clear();
            } else {
                line += static_cast<char>(c);
            }
        }
        if (!line.empty())
            lines.push_back(line);
        pclose(p);
    }
    std::remove(path);
    return lines;
}

TEST(QuoteCStringWithGdb, GdbReadsBackExactlyTheTypedText) {
    if (!haveGdb())
        GTEST_SKIP() << "gdb is not installed";
    const std::string marker = "/tmp/arraylens-mi-quote-injected";
    std::remove(marker.c_str());
    const std::vector<std::string> texts = {
        "plain words",
        "x\"\nshell touch " + marker,
        "a\\\"\r\n-interpreter-exec console \"shell touch " + marker + "\"",
        "tab\there esc\x1b"
        "bell\x07"
        "1 del\x7f caf\xc3\xa9 \\n literal",
        "ends in backslash \\",
    };
    std::vector<std::string> commands;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        // `set args` keeps the rest of its line as typed; gdb announces the
        // new value in a =cmd-param-changed record.
        commands.push_back(std::to_string(i + 1) + "-interpreter-exec console " +
                           quoteCString("set args " + texts[i]));
    }
    const std::vector<std::string> output = runGdb(commands);

    std::vector<std::string> values;
    std::size_t done = 0;
    for (const auto& line : output) {
        const Record r = parseLine(line);
        EXPECT_FALSE(r.isMalformed()) << line << ": " << r.error << " at " << r.column;
        if (r.kind == RecordKind::NotifyAsync && r.klass == "cmd-param-changed" &&
            r.results["param"].asString() == "args")
            values.push_back(r.results["value"].asString());
        if (r.isResult() && r.resultClass == ResultClass::Done && r.token)
            ++done;
    }
    EXPECT_EQ(done, texts.size()) << "every command is answered once, and nothing else ran";
    ASSERT_EQ(values.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(values[i], texts[i]);
    EXPECT_NE(access(marker.c_str(), F_OK), 0) << "a typed text ran a shell command";
}

} // namespace

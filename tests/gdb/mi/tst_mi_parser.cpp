// Table-driven tests of the MI parser. Most lines in the table were captured
// from gdb 13.1 (`gdb --interpreter=mi3 -q -nx`) on small C programs; the
// expected structures are written out by hand.
#include "MiParser.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace arraylens::mi {

// Readable failures for EXPECT_EQ on values.
void PrintTo(const Value& v, std::ostream* os) {
    *os << (v.isAbsent() ? std::string("<absent>") : v.toMi());
}

} // namespace arraylens::mi

namespace {

using namespace arraylens::mi;
using M = Value::Member;

Value S(std::string s) {
    return Value::string(std::move(s));
}
Value T(std::vector<M> members = {}) {
    return Value::tuple(std::move(members));
}
Value L(std::vector<Value> items = {}) {
    return Value::valueList(std::move(items));
}
Value LR(std::vector<M> members) {
    return Value::list(std::move(members));
}

struct Case {
    std::string name;
    std::string raw;
    RecordKind kind = RecordKind::Malformed;
    std::optional<std::uint64_t> token;
    std::string klass;
    Value results = T();
    std::string text;
    // Malformed lines: the column and a piece of the message.
    std::size_t column = 0;
    std::string errorContains;
};

// Parameter names in failure messages instead of a byte dump.
void PrintTo(const Case& c, std::ostream* os) {
    *os << c.name;
}

Case record(std::string name, std::string raw, RecordKind kind, std::optional<std::uint64_t> token,
            std::string klass, Value results = T()) {
    Case c;
    c.name = std::move(name);
    c.raw = std::move(raw);
    c.kind = kind;
    c.token = token;
    c.klass = std::move(klass);
    c.results = std::move(results);
    return c;
}

Case stream(std::string name, std::string raw, RecordKind kind, std::string text) {
    Case c;
    c.name = std::move(name);
    c.raw = std::move(raw);
    c.kind = kind;
    c.text = std::move(text);
    return c;
}

Case bad(std::string name, std::string raw, std::size_t column, std::string errorContains) {
    Case c;
    c.name = std::move(name);
    c.raw = std::move(raw);
    c.column = column;
    c.errorContains = std::move(errorContains);
    return c;
}

const auto none = std::nullopt;

Value breakpoint(const char* addr, const char* line, const char* times, const char* original) {
    return T({{"number", S("1")},
              {"type", S("breakpoint")},
              {"disp", S("keep")},
              {"enabled", S("y")},
              {"addr", S(addr)},
              {"func", S("main")},
              {"file", S("cprog.c")},
              {"fullname", S("/tmp/mi/cprog.c")},
              {"line", S(line)},
              {"thread-groups", L({S("i1")})},
              {"times", S(times)},
              {"original-location", S(original)}});
}

Value stackFrame(const char* level, const char* addr, const char* func, const char* line) {
    return T({{"level", S(level)},
              {"addr", S(addr)},
              {"func", S(func)},
              {"file", S("rec.c")},
              {"fullname", S("/tmp/mi/rec.c")},
              {"line", S(line)},
              {"arch", S("i386:x86-64")}});
}

std::vector<Case> cases() {
    std::vector<Case> t;

    // The prompt, as gdb writes it and without the blank.
    t.push_back(stream("PromptWithBlank", "(gdb) ", RecordKind::Prompt, ""));
    t.push_back(stream("PromptBare", "(gdb)", RecordKind::Prompt, ""));
    t.push_back(stream("PromptWithLineBreak", "(gdb) \n", RecordKind::Prompt, ""));

    // Result records.
    t.push_back(record("DoneBare", "^done", RecordKind::Result, none, "done"));
    t.push_back(record("DoneWithToken", "3^done", RecordKind::Result, 3, "done"));
    t.push_back(record("RunningWithToken", "2^running", RecordKind::Result, 2, "running"));
    t.push_back(record("Connected", "^connected", RecordKind::Result, none, "connected"));
    t.push_back(record("Exit", "^exit", RecordKind::Result, none, "exit"));
    t.push_back(record("LargestToken", "18446744073709551615^done", RecordKind::Result,
                       18446744073709551615ull, "done"));
    t.push_back(record(
        "BreakInsert",
        R"MI(1^done,bkpt={number="1",type="breakpoint",disp="keep",enabled="y",addr="0x00000000000011bf",func="main",file="cprog.c",fullname="/tmp/mi/cprog.c",line="9",thread-groups=["i1"],times="0",original-location="cprog.c:9"})MI",
        RecordKind::Result, 1, "done",
        T({{"bkpt", breakpoint("0x00000000000011bf", "9", "0", "cprog.c:9")}})));
    t.push_back(record("AddressOfElement", R"MI(4^done,value="0x555555558040 <a>")MI",
                       RecordKind::Result, 4, "done", T({{"value", S("0x555555558040 <a>")}})));
    t.push_back(record("ErrorNoSymbol",
                       R"MI(5^error,msg="No symbol \"nosuchvar\" in current context.")MI",
                       RecordKind::Result, 5, "error",
                       T({{"msg", S("No symbol \"nosuchvar\" in current context.")}})));
    t.push_back(record("ErrorSyntax", R"MI(^error,msg="A syntax error in expression, near `'.")MI",
                       RecordKind::Result, none, "error",
                       T({{"msg", S("A syntax error in expression, near `'.")}})));
    t.push_back(record("ErrorMemory", R"MI(^error,msg="Cannot access memory at address 0x0")MI",
                       RecordKind::Result, none, "error",
                       T({{"msg", S("Cannot access memory at address 0x0")}})));
    t.push_back(record(
        "StackOfFrames",
        R"MI(^done,stack=[frame={level="0",addr="0x0000555555555134",func="depth",file="rec.c",fullname="/tmp/mi/rec.c",line="1",arch="i386:x86-64"},frame={level="1",addr="0x0000555555555147",func="depth",file="rec.c",fullname="/tmp/mi/rec.c",line="1",arch="i386:x86-64"},frame={level="2",addr="0x0000555555555147",func="depth",file="rec.c",fullname="/tmp/mi/rec.c",line="1",arch="i386:x86-64"},frame={level="3",addr="0x000055555555516c",func="main",file="rec.c",fullname="/tmp/mi/rec.c",line="2",arch="i386:x86-64"}])MI",
        RecordKind::Result, none, "done",
        T({{"stack", LR({{"frame", stackFrame("0", "0x0000555555555134", "depth", "1")},
                         {"frame", stackFrame("1", "0x0000555555555147", "depth", "1")},
                         {"frame", stackFrame("2", "0x0000555555555147", "depth", "1")},
                         {"frame", stackFrame("3", "0x000055555555516c", "main", "2")}})}})));
    t.push_back(record(
        "StackArguments",
        R"MI(^done,stack-args=[frame={level="0",args=[{name="n",type="int",value="0"}]},frame={level="3",args=[{name="argc",type="int",value="1"},{name="argv",type="char **",value="0x7fffffffe798"}]}])MI",
        RecordKind::Result, none, "done",
        T({{"stack-args",
            LR({{"frame",
                 T({{"level", S("0")},
                    {"args", L({T({{"name", S("n")}, {"type", S("int")}, {"value", S("0")}})})}})},
                {"frame",
                 T({{"level", S("3")},
                    {"args", L({T({{"name", S("argc")}, {"type", S("int")}, {"value", S("1")}}),
                                T({{"name", S("argv")},
                                   {"type", S("char **")},
                                   {"value", S("0x7fffffffe798")}})})}})}})}})));
    t.push_back(record(
        "ThreadGroups",
        R"MI(^done,groups=[{id="i1",type="process",pid="5196",executable="/tmp/mi/cprog",cores=["0"]}])MI",
        RecordKind::Result, none, "done",
        T({{"groups", L({T({{"id", S("i1")},
                            {"type", S("process")},
                            {"pid", S("5196")},
                            {"executable", S("/tmp/mi/cprog")},
                            {"cores", L({S("0")})}})})}})));
    t.push_back(record(
        "ReadMemoryBytes",
        R"MI(^done,memory=[{begin="0x0000555555558040",offset="0x0000000000000000",end="0x0000555555558050",contents="0000000000000000000000000000f03f"}])MI",
        RecordKind::Result, none, "done",
        T({{"memory", L({T({{"begin", S("0x0000555555558040")},
                            {"offset", S("0x0000000000000000")},
                            {"end", S("0x0000555555558050")},
                            {"contents", S("0000000000000000000000000000f03f")}})})}})));
    t.push_back(record(
        "VarCreate",
        R"MI(^done,name="var1",numchild="10",value="[10]",type="double [10][20]",has_more="0")MI",
        RecordKind::Result, none, "done",
        T({{"name", S("var1")},
           {"numchild", S("10")},
           {"value", S("[10]")},
           {"type", S("double [10][20]")},
           {"has_more", S("0")}})));
    // A char pointer as gdb prints it: the value text has its own C quoting,
    // escaped once more by MI; bytes above 0x7f arrive as octal escapes.
    t.push_back(record(
        "LocalsWithEscapedString",
        R"MI(7^done,locals=[{name="i",value="10"},{name="s",value="0x555555556004 \"tab\\there \\\"q\\\" \\\\ \\001\\177 caf\303\251\""}])MI",
        RecordKind::Result, 7, "done",
        T({{"locals", L({T({{"name", S("i")}, {"value", S("10")}}),
                         T({{"name", S("s")},
                            {"value", S("0x555555556004 \"tab\\there \\\"q\\\" \\\\ \\001\\177 caf"
                                        "\xc3\xa9\"")}})})}})));

    // Async records.
    t.push_back(record("RunningAll", R"MI(*running,thread-id="all")MI", RecordKind::ExecAsync, none,
                       "running", T({{"thread-id", S("all")}})));
    t.push_back(record(
        "StoppedAtBreakpoint",
        R"MI(*stopped,reason="breakpoint-hit",disp="keep",bkptno="1",frame={addr="0x0000555555555149",func="main",args=[],file="cprog.c",fullname="/tmp/mi/cprog.c",line="13",arch="i386:x86-64"},thread-id="1",stopped-threads="all",core="0")MI",
        RecordKind::ExecAsync, none, "stopped",
        T({{"reason", S("breakpoint-hit")},
           {"disp", S("keep")},
           {"bkptno", S("1")},
           {"frame", T({{"addr", S("0x0000555555555149")},
                        {"func", S("main")},
                        {"args", L()},
                        {"file", S("cprog.c")},
                        {"fullname", S("/tmp/mi/cprog.c")},
                        {"line", S("13")},
                        {"arch", S("i386:x86-64")}})},
           {"thread-id", S("1")},
           {"stopped-threads", S("all")},
           {"core", S("0")}})));
    t.push_back(record(
        "StoppedWithArguments",
        R"MI(*stopped,reason="breakpoint-hit",disp="keep",bkptno="1",frame={addr="0x0000555555555134",func="depth",args=[{name="n",value="0"}],file="rec.c",fullname="/tmp/mi/rec.c",line="1",arch="i386:x86-64"},thread-id="1",stopped-threads="all",core="1")MI",
        RecordKind::ExecAsync, none, "stopped",
        T({{"reason", S("breakpoint-hit")},
           {"disp", S("keep")},
           {"bkptno", S("1")},
           {"frame", T({{"addr", S("0x0000555555555134")},
                        {"func", S("depth")},
                        {"args", L({T({{"name", S("n")}, {"value", S("0")}})})},
                        {"file", S("rec.c")},
                        {"fullname", S("/tmp/mi/rec.c")},
                        {"line", S("1")},
                        {"arch", S("i386:x86-64")}})},
           {"thread-id", S("1")},
           {"stopped-threads", S("all")},
           {"core", S("1")}})));
    t.push_back(record("StoppedExitedNormally", R"MI(*stopped,reason="exited-normally")MI",
                       RecordKind::ExecAsync, none, "stopped",
                       T({{"reason", S("exited-normally")}})));
    t.push_back(record("StoppedExitedWithCode", R"MI(*stopped,reason="exited",exit-code="02")MI",
                       RecordKind::ExecAsync, none, "stopped",
                       T({{"reason", S("exited")}, {"exit-code", S("02")}})));
    t.push_back(record("ThreadGroupAdded", R"MI(=thread-group-added,id="i1")MI",
                       RecordKind::NotifyAsync, none, "thread-group-added", T({{"id", S("i1")}})));
    t.push_back(record("ThreadGroupStarted", R"MI(=thread-group-started,id="i1",pid="9542")MI",
                       RecordKind::NotifyAsync, none, "thread-group-started",
                       T({{"id", S("i1")}, {"pid", S("9542")}})));
    // Captured from gdb 13 on the Fortran example: a stop in a module
    // procedure whose argument is an array descriptor, and a type answer.
    t.push_back(record(
        "StoppedInFortranModule",
        R"MI(*stopped,reason="breakpoint-hit",disp="keep",bkptno="1",frame={addr="0x000055555555e6b1",func="sections::strided",args=[{name="y",value="..."}],file="arrays.f90",line="42",arch="i386:x86-64"},thread-id="1",stopped-threads="all",core="1")MI",
        RecordKind::ExecAsync, none, "stopped",
        T({{"reason", S("breakpoint-hit")},
           {"disp", S("keep")},
           {"bkptno", S("1")},
           {"frame", T({{"addr", S("0x000055555555e6b1")},
                        {"func", S("sections::strided")},
                        {"args", L({T({{"name", S("y")}, {"value", S("...")}})})},
                        {"file", S("arrays.f90")},
                        {"line", S("42")},
                        {"arch", S("i386:x86-64")}})},
           {"thread-id", S("1")},
           {"stopped-threads", S("all")},
           {"core", S("1")}})));
    t.push_back(stream("FortranAllocatableType",
                       R"MI(~"type = real(kind=8), allocatable (:,:)\n")MI",
                       RecordKind::ConsoleStream, "type = real(kind=8), allocatable (:,:)\n"));
    t.push_back(record("ThreadGroupExited", R"MI(=thread-group-exited,id="i1",exit-code="0")MI",
                       RecordKind::NotifyAsync, none, "thread-group-exited",
                       T({{"id", S("i1")}, {"exit-code", S("0")}})));
    t.push_back(record("ThreadCreated", R"MI(=thread-created,id="1",group-id="i1")MI",
                       RecordKind::NotifyAsync, none, "thread-created",
                       T({{"id", S("1")}, {"group-id", S("i1")}})));
    t.push_back(record(
        "BreakpointCreated",
        R"MI(=breakpoint-created,bkpt={number="1",type="breakpoint",disp="keep",enabled="y",addr="0x0000000000001141",func="main",file="cprog.c",fullname="/tmp/mi/cprog.c",line="5",thread-groups=["i1"],times="0",original-location="main"})MI",
        RecordKind::NotifyAsync, none, "breakpoint-created",
        T({{"bkpt", breakpoint("0x0000000000001141", "5", "0", "main")}})));
    t.push_back(record(
        "LibraryLoaded",
        R"MI(=library-loaded,id="/lib64/ld-linux-x86-64.so.2",target-name="/lib64/ld-linux-x86-64.so.2",host-name="/lib64/ld-linux-x86-64.so.2",symbols-loaded="0",thread-group="i1",ranges=[{from="0x00007ffff7fcb060",to="0x00007ffff7ff0111"}])MI",
        RecordKind::NotifyAsync, none, "library-loaded",
        T({{"id", S("/lib64/ld-linux-x86-64.so.2")},
           {"target-name", S("/lib64/ld-linux-x86-64.so.2")},
           {"host-name", S("/lib64/ld-linux-x86-64.so.2")},
           {"symbols-loaded", S("0")},
           {"thread-group", S("i1")},
           {"ranges",
            L({T({{"from", S("0x00007ffff7fcb060")}, {"to", S("0x00007ffff7ff0111")}})})}})));
    t.push_back(record("NotifyWithToken",
                       R"MI(12=cmd-param-changed,param="print elements",value="unlimited")MI",
                       RecordKind::NotifyAsync, 12, "cmd-param-changed",
                       T({{"param", S("print elements")}, {"value", S("unlimited")}})));
    t.push_back(record(
        "StatusDownload", R"MI(+download,section=".text",section-size="6668",total-size="9880")MI",
        RecordKind::StatusAsync, none, "download",
        T({{"section", S(".text")}, {"section-size", S("6668")}, {"total-size", S("9880")}})));

    // Stream records.
    t.push_back(stream("ConsoleType", R"MI(~"type = double [10][20]\n")MI",
                       RecordKind::ConsoleStream, "type = double [10][20]\n"));
    t.push_back(stream(
        "ConsoleLanguage", R"MI(~"The current source language is \"auto; currently c\".\n")MI",
        RecordKind::ConsoleStream, "The current source language is \"auto; currently c\".\n"));
    t.push_back(stream("ConsoleSourceLine", R"MI(~"9\t    puts(s);\n")MI",
                       RecordKind::ConsoleStream, "9\t    puts(s);\n"));
    t.push_back(stream("ConsoleEmpty", R"MI(~"")MI", RecordKind::ConsoleStream, ""));
    t.push_back(stream("LogEcho", R"MI(&"whatis a\n")MI", RecordKind::LogStream, "whatis a\n"));
    t.push_back(stream("TargetOutput", R"MI(@"Hello from the target\n")MI",
                       RecordKind::TargetStream, "Hello from the target\n"));

    // Escapes.
    t.push_back(stream("NamedEscapes", R"MI(~"a\tb\\c\"d\re\af\bg\fh\vi\ej\n")MI",
                       RecordKind::ConsoleStream, "a\tb\\c\"d\re\af\bg\fh\vi\x1bj\n"));
    t.push_back(stream("OctalEscapes", R"MI(~"\101\0\7\12\377\1010\060")MI",
                       RecordKind::ConsoleStream,
                       std::string("A\0\a\n\xff"
                                   "A0"
                                   "0",
                                   8)));
    t.push_back(
        stream("OctalUtf8", R"MI(~"caf\303\251\n")MI", RecordKind::ConsoleStream, "caf\xc3\xa9\n"));
    t.push_back(stream("HexEscapes", R"MI(~"\x41\x7e\xC3\xa9\x4g\x0")MI", RecordKind::ConsoleStream,
                       std::string("A~\xc3\xa9\x04g\0", 7)));
    t.push_back(stream("RawUtf8", "~\"caf\xc3\xa9 \xe2\x88\x91 \xf0\x9f\x99\x82\\n\"",
                       RecordKind::ConsoleStream, "caf\xc3\xa9 \xe2\x88\x91 \xf0\x9f\x99\x82\n"));
    t.push_back(stream("RawTabAndNulInString", std::string("~\"a\tb\0c\"", 8),
                       RecordKind::ConsoleStream, std::string("a\tb\0c", 5)));
    t.push_back(stream("CrLfLineEnd", "~\"x\"\r\n", RecordKind::ConsoleStream, "x"));

    // Nesting, empty containers, lists of lists.
    t.push_back(record("EmptyTupleAndList", R"MI(^done,t={},l=[])MI", RecordKind::Result, none,
                       "done", T({{"t", T()}, {"l", L()}})));
    t.push_back(
        record("Nested", R"MI(^done,a={b={c=[[],[{}],["x",["y",{z="1"}]]]}},d=[e={},e=[]])MI",
               RecordKind::Result, none, "done",
               T({{"a", T({{"b", T({{"c", L({L(), L({T()}),
                                             L({S("x"), L({S("y"), T({{"z", S("1")}})})})})}})}})},
                  {"d", LR({{"e", T()}, {"e", L()}})}})));
    t.push_back(record("DuplicateNamesInTuple", R"MI(^done,x={a="1",a="2"})MI", RecordKind::Result,
                       none, "done", T({{"x", T({{"a", S("1")}, {"a", S("2")}})}})));
    t.push_back(record("EmptyStringValues", R"MI(^done,a="",b=[""])MI", RecordKind::Result, none,
                       "done", T({{"a", S("")}, {"b", L({S("")})}})));

    // Malformed lines: the column points at the problem.
    t.push_back(bad("EmptyLine", "", 1, "empty line"));
    t.push_back(bad("OnlyLineBreak", "\r\n", 1, "empty line"));
    t.push_back(bad("Garbage", "hello world", 1, "not an MI record"));
    t.push_back(bad("BinaryGarbage", std::string("\x01\xff\0", 3), 1, "not an MI record"));
    t.push_back(bad("UnterminatedString", R"MI(~"type = double)MI", 16, "unterminated string"));
    t.push_back(bad("UnterminatedValue", R"MI(^done,msg="abc)MI", 15, "unterminated string"));
    t.push_back(bad("EndsInBackslash", R"MI(~"abc\)MI", 6, "ends in an escape"));
    t.push_back(
        bad("MissingBrace", R"MI(^done,frame={level="0",func="main")MI", 35, "missing '}'"));
    t.push_back(bad("MissingBracket", R"MI(^done,args=["a","b")MI", 20, "missing ']'"));
    t.push_back(bad("WrongCloser", R"MI(^done,frame={level="0"])MI", 23, "expected ',' or '}'"));
    // A list that does not start with a value is read as a list of results.
    t.push_back(bad("BareNumberInList", R"MI(^done,a=[1,2])MI", 11, "expected '='"));
    t.push_back(bad("MissingEquals", R"MI(^done,a)MI", 8, "expected '='"));
    t.push_back(bad("MissingValue", R"MI(^done,a=)MI", 9, "expected a value"));
    t.push_back(bad("TrailingComma", R"MI(^done,a="1",)MI", 13, "expected a result name"));
    t.push_back(
        bad("TrailingCommaInTuple", R"MI(^done,a={b="1",})MI", 16, "expected a result name"));
    t.push_back(bad("JunkAfterValue", R"MI(^done,a="x"junk)MI", 12, "expected ','"));
    t.push_back(bad("MixedList", R"MI(^done,l=[a="1","2"])MI", 16, "holds a plain value"));
    t.push_back(bad("MixedListValueFirst", R"MI(^done,l=["1",a="2"])MI", 14, "holds a result"));
    t.push_back(bad("UnknownResultClass", "^bogus", 2, "unknown result class"));
    t.push_back(bad("NoResultClass", "^", 2, "expected a result class"));
    t.push_back(bad("OnlyToken", "12", 3, "after a token"));
    t.push_back(bad("TokenOnStream", R"MI(12~"x")MI", 3, "takes no token"));
    t.push_back(bad("TokenOnPrompt", "1(gdb) ", 2, "after a token"));
    t.push_back(bad("TokenTooLarge", "18446744073709551616^done", 1, "64 bits"));
    t.push_back(bad("UnknownEscape", R"MI(~"bad \q")MI", 7, "unknown escape"));
    t.push_back(bad("HexWithoutDigits", R"MI(~"\xg")MI", 3, "without hex digits"));
    t.push_back(bad("OctalTooLarge", R"MI(~"\400")MI", 3, "above \\377"));
    t.push_back(bad("TextAfterStream", R"MI(~"x" )MI", 5, "after the string"));
    t.push_back(bad("StreamWithoutString", "~done", 2, "expected '\"'"));
    t.push_back(bad("TextAfterPrompt", "(gdb) x", 7, "after the prompt"));
    t.push_back(bad("TwoLines", "^done\n^done", 6, "expected ','"));
    t.push_back(bad("NulAfterRecord", std::string("^done\0", 6), 6, "expected ','"));
    t.push_back(bad("BlankAfterComma", R"MI(^done, a="1")MI", 7, "expected a result name"));
    // Deep nesting stops at the limit (257th level, column 8 + 256 + 1)
    // instead of exhausting the stack.
    t.push_back(bad("DeepLists", "^done,a=" + std::string(100000, '['), 265, "nested deeper"));
    {
        std::string deepTuples = "^done";
        for (int i = 0; i < 50000; ++i)
            deepTuples += i == 0 ? ",a=" : "{a=";
        t.push_back(bad("DeepTuples", deepTuples, 8 + 3 * 256 + 1, "nested deeper"));
    }
    return t;
}

class MiLine : public ::testing::TestWithParam<Case> {};

TEST_P(MiLine, ParsesAsExpected) {
    const Case& c = GetParam();
    const Record r = parseLine(c.raw);
    EXPECT_EQ(toString(r.kind), std::string(toString(c.kind)))
        << "error: " << r.error << " at column " << r.column;
    if (c.kind == RecordKind::Malformed) {
        EXPECT_EQ(r.column, c.column) << r.error;
        EXPECT_NE(r.error.find(c.errorContains), std::string::npos) << "message was: " << r.error;
        return;
    }
    EXPECT_TRUE(r.error.empty()) << r.error;
    EXPECT_EQ(r.token, c.token);
    EXPECT_EQ(r.klass, c.klass);
    EXPECT_EQ(r.text, c.text);
    EXPECT_EQ(r.results, c.results);

    // Written back, the record parses to the same thing.
    const Record again = parseLine(r.toMi());
    EXPECT_EQ(again.kind, r.kind) << r.toMi();
    EXPECT_EQ(again.token, r.token);
    EXPECT_EQ(again.klass, r.klass);
    EXPECT_EQ(again.text, r.text);
    EXPECT_EQ(again.results, r.results);
}

INSTANTIATE_TEST_SUITE_P(Gdb13, MiLine, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return info.param.name;
                         });

TEST(MiParser, AcceptsNestingUpToTheLimit) {
    const int levels = Value::kMaxDepth;
    const Record r = parseLine("^done,a=" + std::string(levels, '[') + std::string(levels, ']'));
    ASSERT_FALSE(r.isMalformed()) << r.error;
    const Value* v = &r.results["a"];
    int depth = 0;
    while (v->isList()) {
        ++depth;
        v = v->empty() ? nullptr : &(*v)[0];
        if (!v)
            break;
    }
    EXPECT_EQ(depth, levels);

    const Record over =
        parseLine("^done,a=" + std::string(levels + 1, '[') + std::string(levels + 1, ']'));
    EXPECT_TRUE(over.isMalformed());
}

TEST(MiParser, ResultClassAndHelpers) {
    const Record err =
        parseLine(R"MI(5^error,msg="No symbol \"nosuchvar\" in current context.")MI");
    EXPECT_TRUE(err.isResult());
    EXPECT_EQ(err.resultClass, ResultClass::Error);
    EXPECT_EQ(err.errorMessage(), "No symbol \"nosuchvar\" in current context.");

    EXPECT_EQ(parseLine("^done").resultClass, ResultClass::Done);
    EXPECT_EQ(parseLine("^running").resultClass, ResultClass::Running);
    EXPECT_EQ(parseLine("^connected").resultClass, ResultClass::Connected);
    EXPECT_EQ(parseLine("^exit").resultClass, ResultClass::Exit);
    EXPECT_EQ(parseLine("*running,thread-id=\"all\"").resultClass, ResultClass::None);
    EXPECT_TRUE(parseLine("*running,thread-id=\"all\"").isAsync());
    EXPECT_TRUE(parseLine("=thread-created,id=\"1\"").isAsync());
    EXPECT_TRUE(parseLine("&\"x\"").isStream());
    EXPECT_FALSE(parseLine("^done").isStream());
}

TEST(MiValue, LookupByNameIndexAndPath) {
    const Record r = parseLine(
        R"MI(^done,stack=[frame={level="0",func="depth",line="1"},frame={level="1",func="main",line="2"}],bkpt={number="1",thread-groups=["i1","i2"]},frame={func="main",args=[],line="13"})MI");
    ASSERT_FALSE(r.isMalformed()) << r.error;
    const Value& v = r.results;

    EXPECT_EQ(v["frame"]["line"].asString(), "13");
    EXPECT_EQ(v["frame"]["func"].asString(), "main");
    EXPECT_TRUE(v["frame"]["args"].isList());
    EXPECT_TRUE(v["frame"]["args"].empty());

    // A list of results: by name (first match), by index, and all of them.
    EXPECT_TRUE(v["stack"].isResultList());
    EXPECT_EQ(v["stack"].size(), 2u);
    EXPECT_EQ(v["stack"]["frame"]["func"].asString(), "depth");
    EXPECT_EQ(v["stack"][1]["func"].asString(), "main");
    EXPECT_EQ(v["stack"].members()[1].name, "frame");
    const auto frames = v["stack"].all("frame");
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ((*frames[0])["level"].asString(), "0");
    EXPECT_EQ((*frames[1])["level"].asString(), "1");

    // A list of plain values.
    EXPECT_FALSE(v["bkpt"]["thread-groups"].isResultList());
    EXPECT_EQ(v["bkpt"]["thread-groups"][0].asString(), "i1");
    EXPECT_EQ(v["bkpt"]["thread-groups"][std::size_t{1}].asString(), "i2");

    // Paths.
    ASSERT_NE(v.find("frame.line"), nullptr);
    EXPECT_EQ(v.find("frame.line")->asString(), "13");
    ASSERT_NE(v.find("stack[1].func"), nullptr);
    EXPECT_EQ(v.find("stack[1].func")->asString(), "main");
    ASSERT_NE(v.find("stack.1.line"), nullptr);
    EXPECT_EQ(v.find("stack.1.line")->asString(), "2");
    ASSERT_NE(v.find("stack.frame.level"), nullptr);
    EXPECT_EQ(v.find("stack.frame.level")->asString(), "0");
    ASSERT_NE(v.find("bkpt.thread-groups[1]"), nullptr);
    EXPECT_EQ(v.find("bkpt.thread-groups[1]")->asString(), "i2");
    EXPECT_EQ(v.find(""), &v);
    EXPECT_EQ(v.find("frame"), &v["frame"]);

    // Misses, absent chains and bad paths are safe.
    EXPECT_TRUE(v["nope"].isAbsent());
    EXPECT_FALSE(v["nope"]);
    EXPECT_TRUE(v["nope"]["deeper"][3].isAbsent());
    EXPECT_EQ(v["nope"]["deeper"].asString(), "");
    EXPECT_EQ(v["frame"]["line"]["x"].asString(), "");
    EXPECT_EQ(v["frame"]["line"].stringOr("?"), "13");
    EXPECT_EQ(v["frame"].stringOr("?"), "?");
    EXPECT_TRUE(v["stack"][2].isAbsent());
    EXPECT_TRUE(v["stack"][-1].isAbsent());
    EXPECT_EQ(v.find("nope"), nullptr);
    EXPECT_EQ(v.find("frame.nope"), nullptr);
    EXPECT_EQ(v.find("frame.line.more"), nullptr);
    EXPECT_EQ(v.find("frame."), nullptr);
    EXPECT_EQ(v.find(".frame"), nullptr);
    EXPECT_EQ(v.find("frame..line"), nullptr);
    EXPECT_EQ(v.find("stack[2]"), nullptr);
    EXPECT_EQ(v.find("stack[1"), nullptr);
    EXPECT_EQ(v.find("stack[x]"), nullptr);
    EXPECT_EQ(v.find("stack[]"), nullptr);
    EXPECT_EQ(v.find("stack[99999999999999999999999]"), nullptr);
    EXPECT_EQ(v.find("frame.args[0]"), nullptr);
}

TEST(MiValue, ToMiWritesValuesBack) {
    const Value v = T({{"a", S("x\"y\n")},
                       {"l", L({S("1"), T()})},
                       {"r", LR({{"frame", T({{"line", S("3")}})}})}});
    EXPECT_EQ(v.toMi(), R"MI({a="x\"y\n",l=["1",{}],r=[frame={line="3"}]})MI");
    EXPECT_EQ(Value().toMi(), "");
}

// quoteCString: exact output for the characters it must escape.
struct QuoteCase {
    std::string text;
    std::string quoted;
};

TEST(QuoteCString, EscapesQuotesBackslashesAndControls) {
    const std::vector<QuoteCase> table = {
        {"", R"("")"},
        {"x[3]", R"("x[3]")"},
        {"say \"hi\"", R"("say \"hi\"")"},
        {"C:\\dir\\", R"("C:\\dir\\")"},
        {"a\nb", R"("a\nb")"},
        {"a\rb", R"("a\rb")"},
        {"a\tb", R"("a\tb")"},
        {"\x1b[31m", R"("\033[31m")"},
        {"\x01"
         "2",
         R"("\0012")"},
        {"del\x7f", R"("del\177")"},
        {std::string("nul\0x", 5), R"("nul\000x")"},
        {"caf\xc3\xa9", "\"caf\xc3\xa9\""},
    };
    for (const auto& q : table) {
        EXPECT_EQ(quoteCString(q.text), q.quoted);
        const auto back = parseCString(q.quoted);
        ASSERT_TRUE(back.has_value()) << q.quoted;
        EXPECT_EQ(*back, q.text);
    }
}

// The quoted argument starts and ends with the only unescaped quotes and
// holds no line break: gdb reads it as one argument of one command.
void expectSingleArgument(const std::string& quoted) {
    ASSERT_GE(quoted.size(), 2u);
    EXPECT_EQ(quoted.find('\n'), std::string::npos) << quoted;
    EXPECT_EQ(quoted.find('\r'), std::string::npos) << quoted;
    for (const char c : quoted)
        EXPECT_FALSE(static_cast<unsigned char>(c) < 0x20 || c == 0x7f) << quoted;
    std::vector<std::size_t> unescapedQuotes;
    for (std::size_t i = 0; i < quoted.size(); ++i) {
        if (quoted[i] == '\\') {
            ++i; // skip the escaped byte
            continue;
        }
        if (quoted[i] == '"')
            unescapedQuotes.push_back(i);
    }
    ASSERT_EQ(unescapedQuotes.size(), 2u) << quoted;
    EXPECT_EQ(unescapedQuotes[0], 0u);
    EXPECT_EQ(unescapedQuotes[1], quoted.size() - 1);
}

TEST(QuoteCString, TypedTextCannotStartASecondCommand) {
    const std::vector<std::string> attacks = {
        "x\"\nshell touch /tmp/x",
        "x\" \"\n-interpreter-exec console \"shell touch /tmp/x\"",
        "a[0]\r\n-gdb-exit\r\n",
        "\\\"\n-shell touch /tmp/x\n\\",
        "\\\\\"\n",
        "x\\",
        "\"",
        "\\",
        "\n\n\n",
        "x\"\x0bshell touch /tmp/x\x0c",
        std::string("x\0\nshell touch /tmp/x", sizeof("x\0\nshell touch /tmp/x") - 1),
    };
    for (const auto& text : attacks) {
        const std::string quoted = quoteCString(text);
        expectSingleArgument(quoted);
        const auto back = parseCString(quoted);
        ASSERT_TRUE(back.has_value()) << quoted;
        EXPECT_EQ(*back, text);

        // As the argument of a command line: still one line, and a record
        // built from it by gdb's echo parses back to the typed text.
        const std::string command = "12-interpreter-exec console " + quoted;
        EXPECT_EQ(command.find('\n'), std::string::npos);
        const Record echoed = parseLine("&" + quoted);
        ASSERT_EQ(echoed.kind, RecordKind::LogStream) << echoed.error;
        EXPECT_EQ(echoed.text, text);
    }
}

TEST(QuoteCString, EveryByteRoundTrips) {
    std::string all;
    for (int b = 0; b < 256; ++b)
        all += static_cast<char>(b);
    all += all; // every byte also followed by the next one, including digits after escapes
    const std::string quoted = quoteCString(all);
    expectSingleArgument(quoted);
    const auto back = parseCString(quoted);
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(*back, all);
}

TEST(ParseCString, RejectsAnythingButOneLiteral) {
    EXPECT_EQ(parseCString(R"("a\tb")").value_or("<none>"), "a\tb");
    EXPECT_FALSE(parseCString("").has_value());
    EXPECT_FALSE(parseCString("abc").has_value());
    EXPECT_FALSE(parseCString(R"("abc)").has_value());
    EXPECT_FALSE(parseCString(R"("a" "b")").has_value());
    EXPECT_FALSE(parseCString(R"("a"x)").has_value());
    EXPECT_FALSE(parseCString(R"("\q")").has_value());
}

TEST(MiParser, LongLinesStayLinear) {
    // -data-read-memory-bytes of 2 MiB: 4 MiB of hex in one string.
    const std::string hex(4u << 20, 'a');
    const Record r = parseLine("^done,memory=[{begin=\"0x1000\",contents=\"" + hex + "\"}]");
    ASSERT_FALSE(r.isMalformed()) << r.error;
    EXPECT_EQ(r.results["memory"][0]["contents"].asString().size(), hex.size());

    // A printed array of 200,000 elements with escapes every few bytes.
    std::string body;
    for (int i = 0; i < 200000; ++i)
        body += "\\\"x\\\"";
    const Record s = parseLine("~\"" + body + "\"");
    ASSERT_FALSE(s.isMalformed()) << s.error;
    EXPECT_EQ(s.text.size(), 200000u * 3u);
}

} // namespace

// Parser for the line-oriented output of gdb's machine interface (MI3).
//
// Pure C++17 on purpose: the debugger service builds on it, and it is also
// built and fuzzed in the sanitizer tree, which has no Qt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace arraylens::mi {

// The output grammar this module accepts. One call to parseLine() takes one
// line (a trailing "\n" or "\r\n" is ignored).
//
//   output-line    = result-record | async-record | stream-record | prompt
//   result-record  = [ token ] "^" result-class *( "," result )
//   result-class   = "done" | "running" | "connected" | "error" | "exit"
//   async-record   = [ token ] async-kind async-class *( "," result )
//   async-kind     = "*"            ; exec: running, stopped
//                  | "+"            ; status: progress of long operations
//                  | "="            ; notify: thread, library, breakpoint events
//   async-class    = name
//   stream-record  = "~" c-string   ; console output (what the CLI would print)
//                  | "@" c-string   ; output of a remote target
//                  | "&" c-string   ; log: echoed commands, internal messages
//   prompt         = "(gdb)" *" "   ; gdb writes "(gdb) " with a trailing blank
//   token          = 1*digit        ; fits in 64 bits
//   result         = name "=" value
//   name           = 1*( any byte except  = , { } [ ] " and blanks/controls )
//   value          = c-string | tuple | list
//   tuple          = "{}" | "{" result *( "," result ) "}"
//   list           = "[]" | "[" value *( "," value ) "]"
//                         | "[" result *( "," result ) "]"
//   c-string       = '"' *( char | escape ) '"'
//   escape         = "\n" | "\t" | "\"" | "\\" | "\r" | "\a" | "\b" | "\f"
//                  | "\v" | "\e"
//                  | "\" 1*3octal-digit         ; value at most 255
//                  | "\x" 1*2hex-digit
//
// A list holds either plain values or named results (gdb writes
// `stack=[frame={...},frame={...}]`), never both. Names may repeat, in lists
// of results and, rarely, in tuples; lookup by name gives the first. Bytes
// of 0x80 and above appear raw (UTF-8) or as octal escapes and are kept as
// bytes. There is no white space between the parts of a record.
//
// Nesting is limited to kMaxDepth levels: gdb never comes close, and a
// hostile or corrupt line must not exhaust the stack.
class Value {
public:
    enum class Kind {
        Absent, // what a failed lookup returns, so that lookups can be chained
        String,
        Tuple,
        List,
    };

    struct Member;

    Value() = default;
    static Value string(std::string text);
    static Value tuple(std::vector<Member> members = {});
    static Value list(std::vector<Member> members = {});
    // A list of plain values (members without names).
    static Value valueList(std::vector<Value> items);

    Kind kind() const { return kind_; }
    bool isAbsent() const { return kind_ == Kind::Absent; }
    bool isString() const { return kind_ == Kind::String; }
    bool isTuple() const { return kind_ == Kind::Tuple; }
    bool isList() const { return kind_ == Kind::List; }
    explicit operator bool() const { return kind_ != Kind::Absent; }

    // The decoded text of a string; empty for anything else.
    const std::string& asString() const;
    // The text if this is a string, else `fallback`.
    std::string stringOr(std::string_view fallback) const;

    // Members of a tuple or list, in order. In a list of plain values the
    // names are empty.
    const std::vector<Member>& members() const { return members_; }
    std::size_t size() const { return members_.size(); }
    bool empty() const { return members_.empty(); }
    // True for a non-empty list whose members carry names.
    bool isResultList() const;

    // First member called `name` of a tuple or list of results; Absent if
    // there is none (or this is a string).
    const Value& operator[](std::string_view name) const;
    const Value& operator[](const char* name) const { return (*this)[std::string_view(name)]; }
    // Member `index` of a tuple or list; Absent when out of range.
    const Value& operator[](std::size_t index) const;
    const Value& operator[](int index) const;
    // All members called `name`, e.g. every `frame` of a stack.
    std::vector<const Value*> all(std::string_view name) const;

    // Path lookup: names separated by '.', list positions as ".N" or "[N]":
    // "frame.line", "stack[0].func", "bkpt.thread-groups.0". nullptr when
    // any step is missing or the path is malformed.
    const Value* find(std::string_view path) const;

    // The value in MI syntax, strings quoted with quoteCString().
    std::string toMi() const;

    friend bool operator==(const Value& a, const Value& b);
    friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

    static constexpr int kMaxDepth = 256;

private:
    Kind kind_ = Kind::Absent;
    std::string text_;
    std::vector<Member> members_;
};

struct Value::Member {
    std::string name; // empty for the items of a list of plain values
    Value value;

    friend bool operator==(const Member& a, const Member& b) {
        return a.name == b.name && a.value == b.value;
    }
    friend bool operator!=(const Member& a, const Member& b) { return !(a == b); }
};

enum class RecordKind {
    Result,        // ^done, ^running, ^connected, ^error, ^exit
    ExecAsync,     // *
    StatusAsync,   // +
    NotifyAsync,   // =
    ConsoleStream, // ~
    TargetStream,  // @
    LogStream,     // &
    Prompt,        // (gdb)
    Malformed,     // the line does not follow the grammar; see error/column
};

enum class ResultClass { None, Done, Running, Connected, Error, Exit };

struct Record {
    RecordKind kind = RecordKind::Malformed;
    std::optional<std::uint64_t> token;
    // "done", "stopped", "thread-group-started", ...; empty for streams and
    // the prompt.
    std::string klass;
    ResultClass resultClass = ResultClass::None; // result records only
    // The results after the class, as a tuple (so that `results["frame"]`
    // works); an empty tuple when there are none.
    Value results = Value::tuple();
    // Decoded text of a stream record.
    std::string text;
    // For Malformed: what was wrong, and the 1-based column (byte offset + 1)
    // where it was found.
    std::string error;
    std::size_t column = 0;

    bool isMalformed() const { return kind == RecordKind::Malformed; }
    bool isResult() const { return kind == RecordKind::Result; }
    bool isAsync() const {
        return kind == RecordKind::ExecAsync || kind == RecordKind::StatusAsync ||
               kind == RecordKind::NotifyAsync;
    }
    bool isStream() const {
        return kind == RecordKind::ConsoleStream || kind == RecordKind::TargetStream ||
               kind == RecordKind::LogStream;
    }
    // The text of `msg` in a ^error record.
    const std::string& errorMessage() const { return results["msg"].asString(); }

    // The record in MI syntax (for logs and tests); Malformed records give
    // a description of the error instead.
    std::string toMi() const;
};

// Parses one output line. Never throws for bad input and reads only inside
// `line`: anything that does not follow the grammar comes back as a
// Malformed record.
Record parseLine(std::string_view line);

// Decodes one C-string literal (with its quotes) on its own, e.g. for the
// value of an option read back from gdb. nullopt if it is not exactly one
// well-formed literal.
std::optional<std::string> parseCString(std::string_view literal);

// Quotes text as an MI C-string argument, quotes included. The result is a
// single line of printable bytes: '"' and '\' are escaped, line breaks and
// tabs become \n \r \t and every other control byte a three-digit octal
// escape (gdb's MI reader knows no \x or \e). Text a user typed therefore
// can never end the argument early or start a second command. Bytes of 0x80
// and above are passed through, so UTF-8 survives. A NUL byte becomes \000,
// which gdb refuses: the command fails instead of being cut short.
std::string quoteCString(std::string_view text);

// The value of one hexadecimal digit, either case; -1 for any other byte.
int hexDigit(char c);

const char* toString(RecordKind kind);

} // namespace arraylens::mi

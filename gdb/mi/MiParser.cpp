#include "MiParser.h"

#include <limits>

namespace arraylens::mi {

namespace {

const Value& absentValue() {
    static const Value absent;
    return absent;
}

const std::string& emptyString() {
    static const std::string empty;
    return empty;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isOctal(char c) {
    return c >= '0' && c <= '7';
}

// Bytes that may appear in a result name or a record class.
bool isNameByte(char c) {
    const auto u = static_cast<unsigned char>(c);
    if (u <= 0x20 || u == 0x7f)
        return false;
    switch (c) {
    case '=':
    case ',':
    case '{':
    case '}':
    case '[':
    case ']':
    case '"':
        return false;
    default:
        return true;
    }
}

// Recursive descent over one line. Every read goes through peek()/atEnd(),
// which check the bounds; the first error stops the parse.
class LineParser {
public:
    explicit LineParser(std::string_view line) : s_(line) {}

    Record parse();

    // Decodes the C-string that starts at the current position.
    bool parseCString(std::string& out);
    bool atEnd() const { return pos_ >= s_.size(); }
    const std::string& error() const { return error_; }

private:
    char peek() const { return pos_ < s_.size() ? s_[pos_] : '\0'; }
    bool fail(std::string message, std::size_t at) {
        if (error_.empty()) {
            error_ = std::move(message);
            errorPos_ = at;
        }
        return false;
    }
    bool fail(std::string message) { return fail(std::move(message), pos_); }
    bool expect(char c, const char* what);

    bool parseToken(std::optional<std::uint64_t>& token);
    bool parseName(std::string& out, const char* what);
    bool parseResults(Value& tuple);
    bool parseResult(Value::Member& out, int depth);
    bool parseValue(Value& out, int depth);
    bool parseTuple(Value& out, int depth);
    bool parseList(Value& out, int depth);

    Record malformed() const {
        Record r;
        r.kind = RecordKind::Malformed;
        r.error = error_;
        r.column = errorPos_ + 1;
        return r;
    }

    std::string_view s_;
    std::size_t pos_ = 0;
    std::string error_;
    std::size_t errorPos_ = 0;
};

bool LineParser::expect(char c, const char* what) {
    if (atEnd())
        return fail(std::string("unexpected end of line, expected ") + what);
    if (peek() != c)
        return fail(std::string("expected ") + what);
    ++pos_;
    return true;
}

bool LineParser::parseToken(std::optional<std::uint64_t>& token) {
    if (!isDigit(peek()))
        return true;
    const std::size_t start = pos_;
    std::uint64_t value = 0;
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
    while (isDigit(peek())) {
        const auto digit = static_cast<std::uint64_t>(peek() - '0');
        if (value > (kMax - digit) / 10)
            return fail("token does not fit in 64 bits", start);
        value = value * 10 + digit;
        ++pos_;
    }
    token = value;
    return true;
}

bool LineParser::parseName(std::string& out, const char* what) {
    const std::size_t start = pos_;
    while (!atEnd() && isNameByte(peek()))
        ++pos_;
    if (pos_ == start) {
        if (atEnd())
            return fail(std::string("unexpected end of line, expected ") + what);
        return fail(std::string("expected ") + what);
    }
    out.assign(s_.substr(start, pos_ - start));
    return true;
}

bool LineParser::parseCString(std::string& out) {
    if (!expect('"', "'\"'"))
        return false;
    const std::size_t open = pos_ - 1;
    // Fast path for runs without escapes keeps long strings (memory dumps,
    // big printed arrays) linear with few appends.
    while (true) {
        const std::size_t runStart = pos_;
        while (!atEnd() && s_[pos_] != '"' && s_[pos_] != '\\')
            ++pos_;
        out.append(s_.data() + runStart, pos_ - runStart);
        if (atEnd())
            return fail("unterminated string (opened at column " + std::to_string(open + 1) + ")");
        if (s_[pos_] == '"') {
            ++pos_;
            return true;
        }
        // A backslash.
        const std::size_t escapeStart = pos_;
        ++pos_;
        if (atEnd())
            return fail("unterminated string: line ends in an escape", escapeStart);
        const char c = s_[pos_++];
        switch (c) {
        case 'n':
            out += '\n';
            break;
        case 't':
            out += '\t';
            break;
        case '"':
            out += '"';
            break;
        case '\\':
            out += '\\';
            break;
        case 'r':
            out += '\r';
            break;
        case 'a':
            out += '\a';
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'v':
            out += '\v';
            break;
        case 'e':
            out += '\x1b';
            break;
        case 'x': {
            int value = 0;
            int digits = 0;
            while (digits < 2 && !atEnd() && hexDigit(peek()) >= 0) {
                value = value * 16 + hexDigit(peek());
                ++pos_;
                ++digits;
            }
            if (digits == 0)
                return fail("\\x escape without hex digits", escapeStart);
            out += static_cast<char>(value);
            break;
        }
        default:
            if (isOctal(c)) {
                int value = c - '0';
                int digits = 1;
                while (digits < 3 && !atEnd() && isOctal(peek())) {
                    value = value * 8 + (peek() - '0');
                    ++pos_;
                    ++digits;
                }
                if (value > 0xff)
                    return fail("octal escape above \\377", escapeStart);
                out += static_cast<char>(value);
                break;
            }
            return fail(std::string("unknown escape \\") + c, escapeStart);
        }
    }
}

bool LineParser::parseValue(Value& out, int depth) {
    if (depth > Value::kMaxDepth)
        return fail("values nested deeper than " + std::to_string(Value::kMaxDepth) + " levels");
    switch (peek()) {
    case '"': {
        std::string text;
        if (!parseCString(text))
            return false;
        out = Value::string(std::move(text));
        return true;
    }
    case '{':
        return parseTuple(out, depth);
    case '[':
        return parseList(out, depth);
    default:
        if (atEnd())
            return fail("unexpected end of line, expected a value");
        return fail("expected a value ('\"', '{' or '[')");
    }
}

bool LineParser::parseResult(Value::Member& out, int depth) {
    if (!parseName(out.name, "a result name"))
        return false;
    if (!expect('=', "'=' after a result name"))
        return false;
    return parseValue(out.value, depth);
}

bool LineParser::parseTuple(Value& out, int depth) {
    ++pos_; // '{'
    std::vector<Value::Member> members;
    if (peek() == '}') {
        ++pos_;
        out = Value::tuple();
        return true;
    }
    while (true) {
        Value::Member m;
        if (!parseResult(m, depth + 1))
            return false;
        members.push_back(std::move(m));
        if (atEnd())
            return fail("unexpected end of line, missing '}'");
        if (peek() == ',') {
            ++pos_;
            continue;
        }
        if (peek() == '}') {
            ++pos_;
            break;
        }
        return fail("expected ',' or '}' in a tuple");
    }
    out = Value::tuple(std::move(members));
    return true;
}

bool LineParser::parseList(Value& out, int depth) {
    ++pos_; // '['
    std::vector<Value::Member> members;
    if (peek() == ']') {
        ++pos_;
        out = Value::list();
        return true;
    }
    const auto startsValue = [](char c) { return c == '"' || c == '{' || c == '['; };
    const bool ofValues = startsValue(peek());
    while (true) {
        if (!atEnd() && startsValue(peek()) != ofValues)
            return fail(ofValues ? "a list of values holds a result"
                                 : "a list of results holds a plain value");
        Value::Member m;
        if (ofValues) {
            if (!parseValue(m.value, depth + 1))
                return false;
        } else if (!parseResult(m, depth + 1)) {
            return false;
        }
        members.push_back(std::move(m));
        if (atEnd())
            return fail("unexpected end of line, missing ']'");
        if (peek() == ',') {
            ++pos_;
            continue;
        }
        if (peek() == ']') {
            ++pos_;
            break;
        }
        return fail("expected ',' or ']' in a list");
    }
    out = Value::list(std::move(members));
    return true;
}

bool LineParser::parseResults(Value& tuple) {
    std::vector<Value::Member> members;
    while (!atEnd()) {
        if (peek() != ',')
            return fail("expected ',' before a result");
        ++pos_;
        Value::Member m;
        if (!parseResult(m, 1))
            return false;
        members.push_back(std::move(m));
    }
    tuple = Value::tuple(std::move(members));
    return true;
}

Record LineParser::parse() {
    // One trailing line break, as read from the pipe, is not part of the record.
    if (!s_.empty() && s_.back() == '\n')
        s_.remove_suffix(1);
    if (!s_.empty() && s_.back() == '\r')
        s_.remove_suffix(1);
    if (s_.empty()) {
        fail("empty line", 0);
        return malformed();
    }

    Record r;
    constexpr std::string_view kPrompt = "(gdb)";
    if (s_.substr(0, kPrompt.size()) == kPrompt) {
        pos_ = kPrompt.size();
        while (peek() == ' ')
            ++pos_;
        if (!atEnd()) {
            fail("unexpected text after the prompt");
            return malformed();
        }
        r.kind = RecordKind::Prompt;
        return r;
    }

    if (!parseToken(r.token))
        return malformed();
    if (atEnd()) {
        fail("unexpected end of line after a token");
        return malformed();
    }

    const std::size_t sigilPos = pos_;
    const char sigil = s_[pos_++];
    switch (sigil) {
    case '~':
    case '@':
    case '&': {
        if (r.token) {
            fail("a stream record takes no token", sigilPos);
            return malformed();
        }
        r.kind = sigil == '~'   ? RecordKind::ConsoleStream
                 : sigil == '@' ? RecordKind::TargetStream
                                : RecordKind::LogStream;
        if (!parseCString(r.text))
            return malformed();
        if (!atEnd()) {
            fail("unexpected text after the string");
            return malformed();
        }
        return r;
    }
    case '^':
    case '*':
    case '+':
    case '=': {
        const std::size_t classPos = pos_;
        if (!parseName(r.klass, sigil == '^' ? "a result class" : "an async class"))
            return malformed();
        if (sigil == '^') {
            r.kind = RecordKind::Result;
            if (r.klass == "done")
                r.resultClass = ResultClass::Done;
            else if (r.klass == "running")
                r.resultClass = ResultClass::Running;
            else if (r.klass == "connected")
                r.resultClass = ResultClass::Connected;
            else if (r.klass == "error")
                r.resultClass = ResultClass::Error;
            else if (r.klass == "exit")
                r.resultClass = ResultClass::Exit;
            else {
                fail("unknown result class \"" + r.klass + "\"", classPos);
                return malformed();
            }
        } else {
            r.kind = sigil == '*'   ? RecordKind::ExecAsync
                     : sigil == '+' ? RecordKind::StatusAsync
                                    : RecordKind::NotifyAsync;
        }
        if (!parseResults(r.results))
            return malformed();
        return r;
    }
    default:
        fail(r.token ? "expected '^', '*', '+' or '=' after a token"
                     : "not an MI record: unknown first character",
             sigilPos);
        return malformed();
    }
}

void appendQuoted(std::string& out, std::string_view text) {
    static const char kOctal[] = "01234567";
    out += '"';
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (u < 0x20 || u == 0x7f) {
                // Always three digits, so a digit that follows in the text
                // cannot be taken into the escape.
                out += '\\';
                out += kOctal[(u >> 6) & 7];
                out += kOctal[(u >> 3) & 7];
                out += kOctal[u & 7];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void appendMi(std::string& out, const Value& v) {
    switch (v.kind()) {
    case Value::Kind::Absent:
        break;
    case Value::Kind::String:
        appendQuoted(out, v.asString());
        break;
    case Value::Kind::Tuple:
    case Value::Kind::List: {
        out += v.isTuple() ? '{' : '[';
        bool first = true;
        for (const auto& m : v.members()) {
            if (!first)
                out += ',';
            first = false;
            if (!m.name.empty()) {
                out += m.name;
                out += '=';
            }
            appendMi(out, m.value);
        }
        out += v.isTuple() ? '}' : ']';
        break;
    }
    }
}

} // namespace

Value Value::string(std::string text) {
    Value v;
    v.kind_ = Kind::String;
    v.text_ = std::move(text);
    return v;
}

Value Value::tuple(std::vector<Member> members) {
    Value v;
    v.kind_ = Kind::Tuple;
    v.members_ = std::move(members);
    return v;
}

Value Value::list(std::vector<Member> members) {
    Value v;
    v.kind_ = Kind::List;
    v.members_ = std::move(members);
    return v;
}

Value Value::valueList(std::vector<Value> items) {
    std::vector<Member> members;
    members.reserve(items.size());
    for (auto& item : items)
        members.push_back(Member{std::string(), std::move(item)});
    return list(std::move(members));
}

const std::string& Value::asString() const {
    return kind_ == Kind::String ? text_ : emptyString();
}

std::string Value::stringOr(std::string_view fallback) const {
    return kind_ == Kind::String ? text_ : std::string(fallback);
}

bool Value::isResultList() const {
    return kind_ == Kind::List && !members_.empty() && !members_.front().name.empty();
}

const Value& Value::operator[](std::string_view name) const {
    if (kind_ == Kind::Tuple || kind_ == Kind::List) {
        for (const auto& m : members_) {
            if (!m.name.empty() && m.name == name)
                return m.value;
        }
    }
    return absentValue();
}

const Value& Value::operator[](std::size_t index) const {
    if ((kind_ == Kind::Tuple || kind_ == Kind::List) && index < members_.size())
        return members_[index].value;
    return absentValue();
}

const Value& Value::operator[](int index) const {
    if (index < 0)
        return absentValue();
    return (*this)[static_cast<std::size_t>(index)];
}

std::vector<const Value*> Value::all(std::string_view name) const {
    std::vector<const Value*> found;
    if (kind_ == Kind::Tuple || kind_ == Kind::List) {
        for (const auto& m : members_) {
            if (m.name == name)
                found.push_back(&m.value);
        }
    }
    return found;
}

const Value* Value::find(std::string_view path) const {
    const Value* current = this;
    std::size_t i = 0;
    const std::size_t n = path.size();
    const auto parseIndex = [](std::string_view digits, std::size_t& index) {
        if (digits.empty() || digits.size() > 18)
            return false;
        index = 0;
        for (const char c : digits) {
            if (!isDigit(c))
                return false;
            index = index * 10 + static_cast<std::size_t>(c - '0');
        }
        return true;
    };
    while (i < n) {
        std::size_t index = 0;
        if (path[i] == '[') {
            const std::size_t close = path.find(']', i);
            if (close == std::string_view::npos ||
                !parseIndex(path.substr(i + 1, close - i - 1), index))
                return nullptr;
            current = &(*current)[index];
            i = close + 1;
        } else {
            std::size_t end = i;
            while (end < n && path[end] != '.' && path[end] != '[')
                ++end;
            const std::string_view segment = path.substr(i, end - i);
            if (segment.empty())
                return nullptr;
            if (parseIndex(segment, index))
                current = &(*current)[index];
            else
                current = &(*current)[segment];
            i = end;
        }
        if (current->isAbsent())
            return nullptr;
        if (i < n && path[i] == '.') {
            ++i;
            if (i == n)
                return nullptr; // trailing '.'
        }
    }
    return current;
}

std::string Value::toMi() const {
    std::string out;
    appendMi(out, *this);
    return out;
}

bool operator==(const Value& a, const Value& b) {
    return a.kind_ == b.kind_ && a.text_ == b.text_ && a.members_ == b.members_;
}

std::string Record::toMi() const {
    std::string out;
    if (token)
        out += std::to_string(*token);
    char sigil = 0;
    switch (kind) {
    case RecordKind::Result:
        sigil = '^';
        break;
    case RecordKind::ExecAsync:
        sigil = '*';
        break;
    case RecordKind::StatusAsync:
        sigil = '+';
        break;
    case RecordKind::NotifyAsync:
        sigil = '=';
        break;
    case RecordKind::ConsoleStream:
        return "~" + quoteCString(text);
    case RecordKind::TargetStream:
        return "@" + quoteCString(text);
    case RecordKind::LogStream:
        return "&" + quoteCString(text);
    case RecordKind::Prompt:
        return "(gdb) ";
    case RecordKind::Malformed:
        return "malformed at column " + std::to_string(column) + ": " + error;
    }
    out += sigil;
    out += klass;
    for (const auto& m : results.members()) {
        out += ',';
        out += m.name;
        out += '=';
        appendMi(out, m.value);
    }
    return out;
}

Record parseLine(std::string_view line) {
    LineParser parser(line);
    return parser.parse();
}

std::optional<std::string> parseCString(std::string_view literal) {
    LineParser parser(literal);
    std::string out;
    if (!parser.parseCString(out) || !parser.atEnd())
        return std::nullopt;
    return out;
}

std::string quoteCString(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    appendQuoted(out, text);
    return out;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

const char* toString(RecordKind kind) {
    switch (kind) {
    case RecordKind::Result:
        return "result";
    case RecordKind::ExecAsync:
        return "exec-async";
    case RecordKind::StatusAsync:
        return "status-async";
    case RecordKind::NotifyAsync:
        return "notify-async";
    case RecordKind::ConsoleStream:
        return "console-stream";
    case RecordKind::TargetStream:
        return "target-stream";
    case RecordKind::LogStream:
        return "log-stream";
    case RecordKind::Prompt:
        return "prompt";
    case RecordKind::Malformed:
        return "malformed";
    }
    return "?";
}

} // namespace arraylens::mi

// Result and error types of the engine's public interface. Nothing in the
// engine throws across its interface: every refusal comes back as an Error
// whose message is the text the user gets to read.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace arraylens {

enum class ErrorCode {
    BadSlice = 1,
    BadFilter = 2,
    BadRequest = 3,
    UnsupportedType = 4,
    Unreadable = 5,
    TooLarge = 6,
    Cancelled = 7,
};

struct Error {
    ErrorCode code = ErrorCode::BadRequest;
    std::string message;
};

// Outcome of an operation without a value; cheap when it succeeded.
class Status {
public:
    Status() = default;
    Status(Error e) : failed_(true), error_(std::move(e)) {}
    static Status Ok() { return Status(); }
    bool ok() const { return !failed_; }
    explicit operator bool() const { return !failed_; }
    const Error& error() const { return error_; }
    const std::string& message() const { return error_.message; }

private:
    bool failed_ = false;
    Error error_;
};

template <class T> class Result {
public:
    Result(T value) : v_(std::move(value)) {}
    Result(Error e) : v_(std::move(e)) {}
    Result(const Status& s) : v_(s.error()) {}
    bool ok() const { return v_.index() == 0; }
    explicit operator bool() const { return ok(); }
    const T& value() const& { return std::get<0>(v_); }
    T& value() & { return std::get<0>(v_); }
    T&& value() && { return std::get<0>(std::move(v_)); }
    const T* operator->() const { return &std::get<0>(v_); }
    T* operator->() { return &std::get<0>(v_); }
    const T& operator*() const { return std::get<0>(v_); }
    const Error& error() const { return std::get<1>(v_); }
    const std::string& message() const { return std::get<1>(v_).message; }

private:
    std::variant<T, Error> v_;
};

} // namespace arraylens

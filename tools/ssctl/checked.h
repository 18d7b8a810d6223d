/// A value, or why there is none.
#ifndef SSCTL_CHECKED_H
#define SSCTL_CHECKED_H

#include <optional>
#include <string>
#include <utility>

namespace Ssctl {

/// What is wrong with what somebody typed or sent, as a sentence without its full stop.
struct Problem {
    std::string text;
};

template <typename Value>
class Checked {
public:
    // Implicit, so that a function returns the one or the other.
    Checked(Value value) : value_(std::move(value)) {}
    Checked(Problem problem) : problem_(std::move(problem)) {}

    explicit operator bool() const { return value_.has_value(); }

    /// Only of one that has a value.
    Value& operator*() { return *value_; }
    const Value& operator*() const { return *value_; }
    Value* operator->() { return &*value_; }
    const Value* operator->() const { return &*value_; }

    /// Empty when there is a value.
    const std::string& What() const { return problem_.text; }

private:
    std::optional<Value> value_;
    Problem problem_;
};

}  // namespace Ssctl

#endif

#pragma once

#include <utility>

namespace support {

/// Gives a variable another value while it lives, such as one of the library's path constants.
template <typename T>
class ScopedValue {
public:
    ScopedValue(T& variable, T value) : _variable(variable), _old(std::exchange(variable, std::move(value))) {}
    ~ScopedValue() { _variable = std::move(_old); }
    ScopedValue(const ScopedValue&) = delete;
    ScopedValue& operator=(const ScopedValue&) = delete;

private:
    T& _variable;
    T _old;
};

} // namespace support

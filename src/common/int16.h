#pragma once

#include "common/runtimeerror.h"

#include <QString>
#include <cstdint>

// A 16-bit signed counter that raises run-time error 6 ("Overflow")
// instead of wrapping.
class Int16
{
public:
    constexpr Int16() = default;
    constexpr Int16(int value) : m_value(check(value)) {}

    constexpr int value() const { return m_value; }
    constexpr operator int() const { return m_value; }

    Int16& operator+=(int d)
    {
        m_value = check(int(m_value) + d);
        return *this;
    }
    Int16& operator-=(int d)
    {
        m_value = check(int(m_value) - d);
        return *this;
    }
    Int16& operator++() { return *this += 1; }
    Int16& operator--() { return *this -= 1; }

    QString toString() const { return QString::number(m_value); }

private:
    static constexpr int16_t check(int v)
    {
        if (v < INT16_MIN || v > INT16_MAX)
            RaiseError(rt::Overflow);
        return static_cast<int16_t>(v);
    }
    int16_t m_value = 0;
};

#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <QString>

// The text of a field in a record from outside: up to its zero unit; without one, up to the end of the field. A byte
// order mark is a character like others. The bytes may lie wherever they fall.
inline QString fieldText(const void* field, std::size_t units)
{
    QString text(static_cast<int>(units), QChar::Null);
    std::memcpy(text.data(), field, units * sizeof(QChar));
    const int end = text.indexOf(QChar::Null);
    return end == -1 ? text : text.left(end);
}

template<std::size_t Units>
QString fieldText(const char16_t (&field)[Units])
{
    return fieldText(field, Units);
}

// The bytes of a packed record while it is being filled.
template<std::size_t Size>
class RecordBytes
{
public:
    // UTF-16 with its terminating zero. Intended: a text that is longer than its field spills into the next ones, which
    // the configuration's author has to avoid; past the end of the record nothing is written.
    void putText(std::size_t offset, const QString& text)
    {
        const std::size_t wanted = (static_cast<std::size_t>(text.size()) + 1) * sizeof(ushort);
        std::memcpy(m_bytes.data() + offset, text.utf16(), std::min(wanted, Size - offset));
    }

    // The same in a field of its own: a text that is longer is cut ahead of its terminator, and the result is false.
    [[nodiscard]] bool putTextInField(std::size_t offset, std::size_t units, const QString& text)
    {
        const QString fitting = text.left(static_cast<int>(units) - 1);
        putText(offset, fitting);
        return fitting.size() == text.size();
    }

    // Cut to the width of Number.
    template<typename Number, typename Value>
    void putNumber(std::size_t offset, Value value)
    {
        const auto number = static_cast<Number>(value);
        static_assert(sizeof number <= Size);
        std::memcpy(m_bytes.data() + offset, &number, sizeof number);
    }

    [[nodiscard]] const unsigned char* bytes() const { return m_bytes.data(); }

    template<typename Record>
    [[nodiscard]] Record as() const
    {
        static_assert(sizeof(Record) == Size);
        Record record;
        std::memcpy(&record, m_bytes.data(), Size);
        return record;
    }

private:
    std::array<unsigned char, Size> m_bytes{};
};

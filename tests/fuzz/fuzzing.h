#pragma once

#include "Records/argtype.h"
#include "require.h"

#include <cstddef>
#include <cstdint>
#include <QByteArray>
#include <QString>

// What the fuzz targets share. Each target is one source file with LLVMFuzzerTestOneInput: it takes its choices from
// the first bytes of the input, hands the rest to the service's code, and ends the process when something is wrong.
namespace Fuzzing {

// True when JSON text escapes a surrogate. Half a pair as a key may make the service give a document up that the parser
// takes, which the second reading doesn't know.
inline bool escapesSurrogate(const QByteArray& json)
{
    return json.toLower().contains("\\ud");
}

// The bytes of one input, taken from the front. The low four bits of a byte make a choice, so that the digits '0' to
// '9' and the characters ":;<=>?" behind them are the choices 0 to 15 and a corpus can be written by hand. Behind its
// end an input holds '0'.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(reinterpret_cast<const char*>(data)), m_size(size) {}

    template<typename Value>
    Value choose(const Value (&choices)[16])
    {
        return choices[take() & 0x0F];
    }

    [[nodiscard]] QByteArray rest() const { return {m_data, static_cast<int>(m_size)}; }

private:
    char take();

    const char* m_data;
    std::size_t m_size;
};

// A datum's type and form, from three bytes of the input: usual values and the ones at the edges.
struct Datum
{
    explicit Datum(Input& input);

    ArgType type;
    int entries;
    int length;
};

// A struct member's offset and key, each from one byte.
unsigned int chooseOffset(Input& input);
QString chooseKey(Input& input);

} // namespace Fuzzing

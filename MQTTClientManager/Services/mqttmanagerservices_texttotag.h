#pragma once

#include "Services/tagspace.h"

#include <algorithm>
#include <QByteArray>
#include <QStringRef>
#include <QVector>

// How both families of conversions copy a text and its terminator into a tag. A text takes as many characters as it has
// UTF-16 units, and one for the terminator.
namespace TextToTag {

// Intended: cut to as many bytes as the text has UTF-16 units, and one. A text beyond ASCII loses its end, and its
// terminator stays out.
inline void copyText8(const QStringRef& text, TagSpace buffer)
{
    const QByteArray bytes = text.toUtf8();
    buffer.put(0, bytes.constData(), std::min(qint64{text.size()}, qint64{bytes.size()}) + 1);
}

inline void copyText16(const QStringRef& text, TagSpace buffer)
{
    const qint64 bytes = qint64{text.size()} * 2;
    buffer.put(0, text.unicode(), bytes);
    buffer.putZeros(bytes, 2);
}

// A character outside the basic plane is two units and one code point: the bytes that remain are zero.
inline void copyText32(const QStringRef& text, TagSpace buffer)
{
    const QVector<uint> codePoints = text.toUcs4();
    const qint64 bytes = qint64{codePoints.size()} * 4;
    buffer.put(0, codePoints.constData(), bytes);
    buffer.putZeros(bytes, (qint64{text.size()} + 1) * 4 - bytes);
}

} // namespace TextToTag

#include "bench/bare/sample.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

namespace {

constexpr std::size_t LongestNumber = 24; // characters

char* put(char* to, std::string_view text)
{
    std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

template<typename Integer>
char* putNumber(char* to, Integer value)
{
    return std::to_chars(to, to + LongestNumber, value).ptr;
}

char* putReal(char* to, float value)
{
    return std::to_chars(to, to + LongestNumber, double{value}, std::chars_format::general, 6).ptr;
}

} // namespace

std::size_t formatSample(const Sample& sample, char* text)
{
    char* to = put(text, "{\"run\":");
    to = put(to, sample.run == 1 ? "true" : "false");
    to = putNumber(put(to, ",\"mode\":"), sample.mode);
    to = putNumber(put(to, ",\"lane\":"), sample.lane);
    to = putNumber(put(to, ",\"trim\":"), sample.trim);
    to = putNumber(put(to, ",\"speed\":"), sample.speed);
    to = putNumber(put(to, ",\"offset\":"), sample.offset);
    to = putNumber(put(to, ",\"total\":"), sample.total);
    to = putReal(put(to, ",\"temp\":"), sample.temp);
    to = putReal(put(to, ",\"load\":"), sample.load);
    to = put(to, ",\"batch\":\"");
    to = put(to, {sample.batch, strnlen(sample.batch, sizeof sample.batch - 1)});
    to = put(to, "\"}");
    return static_cast<std::size_t>(to - text);
}

bool parseSample(const char* json, int size, Sample& sample)
{
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromRawData(json, size));
    if (document.isNull())
        return false;
    const QJsonObject object = document.object();
    const auto value = [&object](const char* key) { return object.value(QLatin1String(key)); };
    sample.run = value("run").toBool() ? 1 : 0;
    sample.mode = static_cast<std::int8_t>(value("mode").toInt());
    sample.lane = static_cast<std::uint8_t>(value("lane").toInt());
    sample.trim = static_cast<std::int16_t>(value("trim").toInt());
    sample.speed = static_cast<std::uint16_t>(value("speed").toInt());
    sample.offset = value("offset").toInt();
    sample.total = static_cast<std::uint32_t>(value("total").toDouble());
    sample.temp = static_cast<float>(value("temp").toDouble());
    sample.load = static_cast<float>(value("load").toDouble());
    const QByteArray batch = value("batch").toString().toUtf8();
    std::memcpy(sample.batch, batch.constData(), std::min<std::size_t>(batch.size(), sizeof sample.batch - 1));
    return true;
}

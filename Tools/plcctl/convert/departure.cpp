#include "convert/departure.h"

#include "output.h"
#include "servicecode/privatetagmemory.h"
#include "tagtypes.h"

#include <algorithm>
#include <span>

namespace plcctl {

namespace {

std::vector<std::string> notesOnText(const std::string& text)
{
    if (Json::accept(text))
        return {};
    return {"this is no valid JSON: quotes, backslashes and control characters in texts are not escaped, and a REAL "
            "may be nan or inf"};
}

} // namespace

Departure depart(Publisher& publisher, std::vector<std::uint8_t> tag, const std::string& title)
{
    const auto size = static_cast<std::size_t>(std::max(publisher.m_DataSize, 0));
    Departure departure;
    departure.title = title;
    if (tag.size() != size)
        departure.notes.push_back("the tag has " + std::to_string(size) + " bytes, " + std::to_string(tag.size()) +
                                  (tag.size() < size ? " were given: the rest counts as 0" : " were given"));
    tag.resize(size);
    departure.tag = tag;
    PrivateTagMemory::setSource([tag](unsigned long /*position*/, std::span<std::uint8_t> bytes) {
        std::copy_n(tag.begin(), std::min(tag.size(), bytes.size()), bytes.begin());
        return true;
    });
    const bool isTooLong =
        size > MaxTagBytes || (publisher.m_PayloadFormat == PF_BUFFER && size > SIZEOF_PUBLISH_BUFFER);
    if (publisher.m_PayloadFormat == PF_BUFFER && !isTooLong)
        departure.payload = std::string(tag.begin(), tag.end());
    if (publisher.m_PayloadFormat == PF_JSON && !isTooLong) {
        std::vector<char> buffer(size + 1);
        const QByteArray text = publisher.assembleJsonByteArrayFromBuffer(buffer.data(), publisher.m_DataSize);
        if (!text.isNull())
            departure.payload = text.toStdString();
    }
    if (!departure.payload)
        departure.notes.emplace_back(publisher.m_PayloadFormat > PF_JSON
                                         ? "its payload is made by a script, which is not run here"
                                         : "the payload is larger than 5000 bytes: nothing is published, -12");
    else if (publisher.m_PayloadFormat == PF_JSON)
        departure.notes = notesOnText(*departure.payload);
    return departure;
}

} // namespace plcctl

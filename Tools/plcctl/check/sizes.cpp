#include "check/checks.h"
#include "check/wording.h"
#include "Records/argtype.h"

#include <algorithm>

namespace plcctl::check {

namespace {

constexpr std::int64_t LargestMessage = 5000;      // bytes of a publication
constexpr std::int64_t PieceOfWrite = 1020;        // bytes of a tag that are written at once
constexpr std::int64_t LargestReceived = 16 << 20; // bytes of a subscription's tag

// How long a text may come out, in bytes.
struct Length
{
    std::int64_t least = 0;
    std::int64_t most = 0;

    Length& operator+=(const Length& other)
    {
        least += other.least;
        most += other.most;
        return *this;
    }
};

Length exactly(std::int64_t bytes)
{
    return {bytes, bytes};
}

Length lengthOfOne(const ValueLayout& value)
{
    constexpr std::int64_t Quotes = 2;
    const std::int64_t characters = std::max(value.length, 0);
    switch (value.type) {
    case AT_BOOL: // "true", "false"
        return {4, 5};
    case AT_INT8: // "-128"
        return {1, 4};
    case AT_UINT8: // "255"
        return {1, 3};
    case AT_INT16: // "-32768"
        return {1, 6};
    case AT_UINT16:
        return {1, 5};
    case AT_UINT32:
        return {1, 10};
    case AT_INT32:
        return {1, 11};
    case AT_REAL: // "-1.17549e-38"
        return {1, 12};
    case AT_STR8:
        return {Quotes, Quotes + characters};
    case AT_STR16: // three bytes for a unit of two
        return {Quotes, Quotes + 3 * characters};
    case AT_STR32:
        return {Quotes, Quotes + 4 * characters};
    default: // "0"
        return {1, 1};
    }
}

Length lengthOf(const ValueLayout& value)
{
    const Length one = lengthOfOne(value);
    if (value.entries <= 0 || isTextType(value.type))
        return one;
    // The brackets, the elements, and a comma between each two.
    const std::int64_t count = value.entries;
    return {1 + count * (one.least + 1), 1 + count * (one.most + 1)};
}

Length lengthOfJson(const Caller& caller)
{
    if (caller.value.type != AT_STRUCT)
        return lengthOf(caller.value);
    Length sum = exactly(1);
    for (const Member& member : caller.members) {
        // The name in quotes, a colon, and a comma or the closing brace.
        sum += exactly(member.name.toUtf8().size() + 4);
        sum += lengthOf(member.value);
    }
    return sum;
}

Site siteOfSize(const Caller& caller)
{
    return caller.entry.site("DataType");
}

void checkJson(const Caller& caller, Findings& findings)
{
    const Length length = lengthOfJson(caller);
    if (length.least > LargestMessage)
        findings.error(siteOfSize(caller), "message-too-large",
                       "the JSON has at least " + std::to_string(length.least) +
                           " bytes, and no message has more than 5000: each publishing fails with -12; publish less, "
                           "or in several publications");
    else if (length.most > LargestMessage)
        findings.warning(siteOfSize(caller), "message-too-large",
                         "the JSON can have up to " + std::to_string(length.most) +
                             " bytes, depending on the values, and what exceeds 5000 is not sent (-12); publish less, "
                             "or in several publications");
}

void checkPublication(const Caller& caller, Findings& findings)
{
    if (caller.format == PayloadFormat::Json)
        return checkJson(caller, findings);
    if (caller.format == PayloadFormat::Raw && caller.size > LargestMessage)
        findings.error(siteOfSize(caller), "message-too-large",
                       "the tag has " + counted(caller.size, "byte") +
                           ", and no message has more than 5000: each publishing fails with -12; publish less, or in "
                           "several publications");
}

void checkSubscription(const Caller& caller, Findings& findings)
{
    if (caller.size > LargestReceived)
        findings.error(siteOfSize(caller), "tag-too-large",
                       "the tag has " + counted(caller.size, "byte") +
                           ", and one of more than 16777216 is never written; make it smaller");
    else if (caller.size > 0 && caller.size % PieceOfWrite == 0)
        findings.error(siteOfSize(caller), "tag-size-1020",
                       "the tag has " + counted(caller.size, "byte") +
                           ", a multiple of 1020: the last 1020 are never written; make it a byte larger");
}

} // namespace

void checkSizes(const Configuration& configuration, Findings& findings)
{
    for (const Caller& caller : configuration.publications)
        checkPublication(caller, findings);
    for (const Caller& caller : configuration.subscriptions)
        checkSubscription(caller, findings);
}

} // namespace plcctl::check

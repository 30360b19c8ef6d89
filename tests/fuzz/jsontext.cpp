#include "Utils/jsontext.h"

#include "fuzzing.h"

#include <QJsonDocument>
#include <sanitizer/allocator_interface.h>

// A JSON document of which members are taken out that the parser would never free: the whole input.

namespace {

// That what is looked at more often than some multiple of its size is given up is known only of large documents.
constexpr std::size_t LargestInput = 512;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray json(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const QByteArray cleaned = JsonText::withoutReplacedContainers(json);
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    static_cast<void>(QJsonDocument::fromJson(cleaned));
    Fuzzing::require(__sanitizer_get_current_allocated_bytes() == before, "the parser frees all of a cleaned document");
    const bool isText = QString::fromUtf8(json).toUtf8() == json && !Fuzzing::escapesSurrogate(json);
    if (cleaned.isEmpty() && (size > LargestInput || !isText))
        return 0;
    Fuzzing::require(QJsonDocument::fromJson(cleaned) == QJsonDocument::fromJson(json),
                     "a cleaned document says the same, and text that is no JSON stays no JSON");
    return 0;
}

// The comparison above parses documents that the parser doesn't free.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libQt5Core.so\n";
}

#pragma once

#include "Entities/mqttcallerbase.h"

#include <cstring>
#include <string_view>
#include <vector>

// A struct's members as publishing needs them: one behind the other in one piece of memory, each with its key as it
// stands in the payload. Publishing touches all of them each time, and hundreds of structs many times a second.
class JsonLayout
{
public:
    struct Member
    {
        ArgType type;
        int entries;
        int length;
        unsigned int offset;
    };

    JsonLayout() = default;
    explicit JsonLayout(const QList<JsonDataMember>& members);

    // True when this was made from this very list and it hasn't changed since.
    [[nodiscard]] bool isOf(const QList<JsonDataMember>& members) const { return m_source.isSharedWith(members); }

    // Calls visit(key, member) for each member in the order of the list, until it returns false. The first key begins
    // with the opening brace, the others with a comma.
    template<typename Visit>
    void forEachMember(Visit visit) const
    {
        for (std::size_t at = 0; at < m_bytes.size();) {
            Entry entry;
            std::memcpy(&entry, m_bytes.data() + at, sizeof entry);
            at += sizeof entry;
            if (!visit(std::string_view(m_bytes.data() + at, entry.keySize), entry.member))
                return;
            at += entry.keySize;
        }
    }

private:
    // Its key follows it.
    struct Entry
    {
        Member member;
        unsigned int keySize;
    };

    QList<JsonDataMember> m_source;
    std::vector<char> m_bytes;
};

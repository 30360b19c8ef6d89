#include "Entities/jsonlayout.h"

#include <QByteArray>

JsonLayout::JsonLayout(const QList<JsonDataMember>& members) : m_source(members)
{
    for (const JsonDataMember& member : members) {
        // Intended: nothing in the name is escaped.
        const QByteArray key = (m_bytes.empty() ? "{\"" : ",\"") + member.Name.toUtf8() + "\":";
        const Entry entry{{member.Type, member.Entry, member.Len, member.Offset},
                          static_cast<unsigned int>(key.size())};
        const char* bytes = reinterpret_cast<const char*>(&entry);
        m_bytes.insert(m_bytes.end(), bytes, bytes + sizeof entry);
        m_bytes.insert(m_bytes.end(), key.begin(), key.end());
    }
    m_bytes.shrink_to_fit();
}

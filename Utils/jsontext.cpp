#include "Utils/jsontext.h"

#include <algorithm>
#include <optional>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QString>
#include <vector>

namespace {

// Deeper documents are refused by the parser.
constexpr std::size_t DeepestLevel = 1024;

// How often the whole text may be looked at again to prove that what is taken out is JSON.
constexpr qint64 LooksAtText = 8;
constexpr qint64 AlwaysAllowed = 1024 * 1024; // bytes, whatever the size of the text

class ReplacedContainers
{
public:
    explicit ReplacedContainers(QByteArray& json)
        : m_json(json), m_budget(std::max(LooksAtText * json.size(), AlwaysAllowed))
    {
    }

    // False when it would take too long, or can't be told.
    bool remove()
    {
        while (m_at < m_json.size() && m_isGoingOn && m_budget >= 0)
            takeCharacter();
        return m_budget >= 0;
    }

private:
    struct Span
    {
        int begin;
        int end;
    };

    // An array, or an object with those of its members that are containers.
    struct Level
    {
        bool isObject = false;
        bool isKeyNext = false;
        bool isContainer = false;        // the value of the member that is being read
        Span key{0, 0};                  // of the member that is being read, with its quotes
        QHash<QString, Span> containers; // each from its key to the comma behind it
    };

    void takeCharacter()
    {
        switch (m_json.at(m_at)) {
        case '"':
            return takeText();
        case '{':
            enter(true);
            break;
        case '[':
            enter(false);
            break;
        case '}':
        case ']':
            leave();
            break;
        case ',':
            endMember();
            break;
        default:
            break;
        }
        ++m_at;
    }

    void takeText()
    {
        const int begin = m_at++;
        while (m_at < m_json.size() && m_json.at(m_at) != '"')
            m_at += m_json.at(m_at) == '\\' ? 2 : 1;
        ++m_at;
        if (m_levels.empty() || !m_levels.back().isKeyNext)
            return;
        Level& level = m_levels.back();
        level.isKeyNext = false;
        level.isContainer = false;
        level.key = {begin, m_at};
        if (!level.containers.isEmpty())
            removeFormer(level);
    }

    void enter(bool isObject)
    {
        if (!m_levels.empty())
            m_levels.back().isContainer = true;
        m_isGoingOn = m_levels.size() < DeepestLevel;
        m_levels.push_back({});
        m_levels.back().isObject = isObject;
        m_levels.back().isKeyNext = isObject;
    }

    void leave()
    {
        m_isGoingOn = !m_levels.empty();
        if (m_isGoingOn)
            m_levels.pop_back();
    }

    void endMember()
    {
        if (m_levels.empty() || !m_levels.back().isObject)
            return;
        Level& level = m_levels.back();
        level.isKeyNext = true;
        if (level.isContainer)
            level.containers.insert(nameOf(level.key), {level.key.begin, m_at});
    }

    void removeFormer(Level& level)
    {
        const auto former = level.containers.find(nameOf(level.key));
        if (former == level.containers.end())
            return;
        const Span span = former.value();
        level.containers.erase(former);
        m_budget -= span.end - span.begin;
        m_isGoingOn = isMember(span);
        if (m_isGoingOn)
            std::fill(m_json.begin() + span.begin, m_json.begin() + span.end + 1, ' ');
    }

    [[nodiscard]] bool isMember(Span span) const
    {
        const QByteArray member = m_json.mid(span.begin, span.end - span.begin);
        return !QJsonDocument::fromJson('{' + member + '}').isNull();
    }

    // The key with its escapes undone. Half a surrogate pair is no text: what the parser makes of two such keys is its
    // own affair, so the document is given up.
    QString nameOf(Span span)
    {
        const QByteArray key = m_json.mid(span.begin, span.end - span.begin);
        if (!key.contains('\\'))
            return QString::fromUtf8(key);
        const QString name = QJsonDocument::fromJson('[' + key + ']').array().at(0).toString();
        if (!name.isValidUtf16())
            m_budget = -1;
        return '"' + name + '"';
    }

    QByteArray& m_json;
    int m_at = 0;
    bool m_isGoingOn = true;
    qint64 m_budget;
    std::vector<Level> m_levels;
};

} // namespace

QByteArray JsonText::withoutReplacedContainers(QByteArray json)
{
    // Most messages have no container in an object.
    if (json.count('{') + json.count('[') < 2 || !json.contains('{'))
        return json;
    return ReplacedContainers(json).remove() ? json : QByteArray();
}

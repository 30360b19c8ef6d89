#include "check/values.h"

#include "check/configuration.h"
#include "check/wording.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <QStringList>

namespace plcctl::check {

namespace {

using schema::Form;

constexpr int HexadecimalBase = 16;

bool isSigned(const schema::Attribute& known)
{
    return known.form == Form::Signed || known.form == Form::Flag || known.form == Form::DataType ||
           (known.form == Form::Address && known.least < 0);
}

// As the service converts it; nothing where it takes 0 for want of a number.
std::optional<std::int64_t> numberOf(const schema::Attribute& known, const QString& text)
{
    bool isNumber = false;
    std::int64_t number = 0;
    if (known.form == Form::Offset)
        number = text.mid(2).toUInt(&isNumber, HexadecimalBase);
    else if (isSigned(known))
        number = text.toInt(&isNumber);
    else
        number = text.toUInt(&isNumber);
    return isNumber ? std::optional(number) : std::nullopt;
}

std::string rangeText(const schema::Attribute& known)
{
    return "from " + std::to_string(known.least) + " to " + std::to_string(known.most);
}

// The sentences of the table that tell of numbers: those about other texts are told by a finding of their own.
std::string consequenceOfNumber(const schema::Attribute& known)
{
    const QStringList sentences = named(known.mistake).split(". ");
    QStringList rest;
    std::copy_if(sentences.begin(), sentences.end(), std::back_inserter(rest),
                 [](const QString& sentence) { return !sentence.startsWith("A text that is no number"); });
    return rest.join(". ").toStdString();
}

std::string nameAndValue(const Attribute& attribute)
{
    return attribute.name.toStdString() + " is " + quoted(attribute.value);
}

class ValueCheck
{
public:
    ValueCheck(const schema::Attribute& known, const Attribute& attribute, int file, Findings& findings)
        : m_known(known), m_attribute(attribute), m_site{file, attribute.place}, m_findings(findings)
    {
    }

    void check()
    {
        switch (m_known.form) {
        case Form::Text:
        case Form::Topic:
        case Form::FileName:
            return checkText();
        case Form::DataType:
            return checkDataType();
        case Form::Offset:
            return checkOffset();
        case Form::Flag:
            return checkFlag();
        default:
            checkNumber(m_attribute.value);
        }
    }

private:
    void checkText()
    {
        checkLength();
        if (!m_known.onlyChoices || m_attribute.value.isEmpty())
            return;
        std::vector<std::string> names;
        for (const schema::Choice& choice : m_known.choices) {
            if (m_attribute.value == named(choice.value))
                return;
            names.emplace_back(choice.value);
        }
        m_findings.error(m_site, "unknown-value",
                         nameAndValue(m_attribute) + suggestion(names, m_attribute.value) + ": " +
                             std::string(m_known.mistake) + "; write " + names.front() + " or " + names.back());
    }

    void checkLength()
    {
        constexpr int BytesPerUnit = 2;
        const int longest = m_known.fieldSize / BytesPerUnit - 1;
        // Topics are measured with their variables expanded.
        if (m_known.fieldSize == 0 || m_known.form == Form::Topic || m_attribute.value.size() <= longest)
            return;
        m_findings.warning(m_site, "too-long",
                           m_attribute.name.toStdString() + " has " + std::to_string(m_attribute.value.size()) +
                               " characters, and its field in the configuration record takes " +
                               std::to_string(longest) +
                               ": a request that reads it back gets a text that runs into the next field");
    }

    void checkFlag()
    {
        const auto number = numberOf(m_known, m_attribute.value);
        if (!number)
            return reportNoNumber(m_attribute.value, "write 1 for yes or 0 for no");
        if (*number != 0 && *number != 1) {
            m_findings.warning(m_site, "flag-value",
                               nameAndValue(m_attribute) + ": any number but 0 is yes; write 1 or 0");
        }
    }

    bool checkNumber(const QString& text)
    {
        const auto number = numberOf(m_known, text);
        if (!number) {
            reportNoNumber(text, "write a number " + rangeText(m_known));
            return false;
        }
        if (*number >= m_known.least && *number <= m_known.most)
            return true;
        const std::string consequence = consequenceOfNumber(m_known);
        m_findings.error(m_site, "out-of-range",
                         m_attribute.name.toStdString() + " is " + std::to_string(*number) + ", outside " +
                             std::to_string(m_known.least) + " to " + std::to_string(m_known.most) +
                             (consequence.empty() ? "" : ": " + consequence));
        return false;
    }

    void reportNoNumber(const QString& text, const std::string& advice)
    {
        const std::string what = text.isEmpty() ? " is empty" : " is " + quoted(text) + ", which is no number it takes";
        m_findings.error(m_site, "no-number",
                         m_attribute.name.toStdString() + what + ": the service takes 0; " + advice);
    }

    void checkDataType()
    {
        const QStringList parts = m_attribute.value.split('_');
        if (!checkNumber(parts.at(0)))
            return;
        const int type = parts.at(0).toInt();
        if (isTextType(type))
            return checkTextLength(parts);
        if (parts.size() > 1) {
            m_findings.warning(m_site, "ignored-length",
                               nameAndValue(m_attribute) + ": only texts (9, 11, 12) have a length; write '" +
                                   std::to_string(type) + "', and the number of an array's elements into Ent");
        }
    }

    void checkTextLength(const QStringList& parts)
    {
        const std::string type = parts.at(0).trimmed().toStdString();
        if (parts.size() == 1) {
            return m_findings.error(m_site, "text-without-length",
                                    nameAndValue(m_attribute) +
                                        ", a text without a length, which has no room for a "
                                        "single character; write '" +
                                        type + "_20' for 20 characters");
        }
        bool isNumber = false;
        const int length = parts.at(1).toInt(&isNumber);
        if (!isNumber || length < 1) {
            return m_findings.error(m_site, "text-without-length",
                                    nameAndValue(m_attribute) + ": the length behind '_' is " +
                                        (isNumber ? std::to_string(length) : "no number and taken as 0") +
                                        ", and the text has no room; write '" + type + "_20' for 20 characters");
        }
        if (parts.size() > 2) {
            m_findings.warning(m_site, "ignored-length",
                               nameAndValue(m_attribute) + ": what follows the second '_' is not looked at; write '" +
                                   type + "_" + std::to_string(length) + "'");
        }
    }

    void checkOffset()
    {
        const QString& text = m_attribute.value;
        if (!text.startsWith("0x", Qt::CaseInsensitive)) {
            const auto number = numberOf(m_known, text);
            return m_findings.error(m_site, "offset-form",
                                    nameAndValue(m_attribute) +
                                        " and doesn't begin with '0x': the service drops the "
                                        "first two characters, whatever they are, and takes " +
                                        std::to_string(number.value_or(0)) +
                                        "; write a hexadecimal number such as '0x1f'");
        }
        if (!numberOf(m_known, text))
            return reportNoNumber(text, "write a hexadecimal number such as '0x1f'");
        checkNumber(text);
    }

    const schema::Attribute& m_known;
    const Attribute& m_attribute;
    Site m_site;
    Findings& m_findings;
};

} // namespace

bool isInRange(const schema::Attribute& known, const QString& value)
{
    if (known.form == Form::Text || known.form == Form::Topic || known.form == Form::FileName)
        return true;
    const auto number = numberOf(known, value);
    return number && *number >= known.least && *number <= known.most;
}

void checkValue(const schema::Attribute& known, const Attribute& attribute, int file, Findings& findings)
{
    ValueCheck(known, attribute, file, findings).check();
}

} // namespace plcctl::check

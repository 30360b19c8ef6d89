#include "Utils/xmlparser.h"

#include "fuzzing.h"
#include "memoryfile.h"

namespace {

// What is written into an attribute, and whether XML can hold it as it is.
struct Value
{
    const char16_t* text;
    bool isStorable;
};

constexpr Value Values[16] = {
    {u"", true},         {u"plain", true},      {u"<&>\"'", true},        {u"\t\n\r", true},    {u"]]>--?>", true},
    {u"Größe €", true},  {u"\U0001F642", true}, {u"\xFEFFx", true},       {u"\x01", false},     {u"\xFFFE", false},
    {u"a\xFFFF", false}, {u"\xD83D", false},    {u"\xDE42\xD83D", false}, {u"&#1;&amp;", true}, {u"\x7F\x85", true},
    {u" a  b ", true}};

void checkChange(XmlParser& parser, const QStringList& path, const Value& value)
{
    const QString text(reinterpret_cast<const QChar*>(value.text), std::char_traits<char16_t>::length(value.text));
    if (!parser.setTagAttributesValues(path, {}, {}, {"Topic"}, {text}, true))
        return;
    Fuzzing::require(parser.refreshXml(), "what was written can be loaded");
    QStringList values;
    if (!parser.getTagAttributesValues(path, {"Topic"}, values))
        return; // the path led to no element, and nothing was changed
    Fuzzing::require(values.size() == 1 && values.constFirst().size() == text.size(), "the attribute is there");
    Fuzzing::require(!value.isStorable || values.constFirst() == text, "and has its value");
}

} // namespace

// A document that is loaded, changed, written and loaded again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static MemoryFile file;
    Fuzzing::Input input(data, size);
    const Value value = input.choose(Values);
    file.setContent(input.rest());
    XmlParser parser;
    if (!parser.setXmlFile(file.path()))
        return 0;
    const int children = parser.getNumOfChildTags();
    const QString text = parser.getXmlData({});
    checkChange(parser, {}, value);
    checkChange(parser, {"Brokers", "BrokerConf"}, value);
    Fuzzing::require(parser.getNumOfChildTags() == children, "no element is lost");
    Fuzzing::require(parser.getXmlData({}).size() == text.size(), "no text is lost");
    return 0;
}

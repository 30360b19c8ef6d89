#pragma once

#include <cstdint>
#include <span>
#include <string_view>

// What may stand in the four configuration files, attribute by attribute: the one table behind `plcctl check`, the XSD
// schemas, the manual pages of the files and the tables of docs/configuration.md.
namespace plcctl::schema {

// How the service reads an attribute's text. A text that doesn't fit reads as 0; blanks around a number don't matter.
enum class Form
{
    Text,     // as it stands
    Topic,    // text in which variables are expanded
    FileName, // of a file in the directory of the four
    Unsigned, // decimal, 0 to 4294967295
    Signed,   // decimal, -2147483648 to 2147483647
    Flag,     // decimal; any number but 0 is true
    Address,  // position in tag memory: as Unsigned, or where `least` is -1 as Signed, and -1 means none
    DataType, // a type's number, with "_" and a length in characters behind it for texts
    Offset    // two characters that are dropped, then hexadecimal digits: "0x1f"
};

// One value with a meaning of its own.
struct Choice
{
    std::string_view value;   // as it stands in the file; of a DataType the type's number alone
    std::string_view name;    // "INT32", "JSON"; empty where it has none
    std::string_view meaning; // a phrase without a full stop
};

// In the order in which an entry is written and read; there are few enough for the gaps.
struct Attribute // NOLINT(clang-analyzer-optin.performance.Padding)
{
    std::string_view name;
    Form form = Form::Text;
    std::string_view whenMissing; // the value that the service goes on with, as it would stand in the file
    bool required = false;        // leaving it out is hardly ever meant; with `levels`, at those levels
    std::int64_t least = 0;       // what makes sense, of numbers and of a DataType's number; the service takes anything
    std::int64_t most = 0;        //
    int fieldSize = 0;            // bytes of a text's field in the configuration record, terminator included; 0: none
    std::uint8_t levels = 0;      // bit n: read at encryption level n; 0: always read
    std::string_view unit = {};   // "s", "ms"; empty where there is none
    std::string_view meaning;     // a sentence without a full stop
    std::string_view mistake;     // what becomes of a text that doesn't fit: a sentence without a full stop
    std::span<const Choice> choices = {}; // values that are named
    bool onlyChoices = false;             // no other value makes sense
    std::string_view pattern = {}; // what a text as a whole makes sense as, as a regular expression of XML Schema
    bool unique = false;           // no two elements of a list have the same
};

struct Element
{
    std::string_view name;
    std::span<const Attribute> attributes = {}; // in the order in which the service reads them
    std::span<const Element> children = {};
    bool required = false; // a file without it makes no sense
    bool repeated = false; // stands any number of times, in the order of the file
    std::string_view meaning;
};

struct ConfigurationFile
{
    std::string_view name; // "Brokers.xml"
    Element top;
    std::string_view meaning;
};

// The four files, in the order in which the service reads them.
std::span<const ConfigurationFile> configurationFiles();

// The file of that name; null when there is none.
const ConfigurationFile* findFile(std::string_view name);
// Of that element; null when it has none of that name.
const Attribute* findAttribute(const Element& element, std::string_view name);
const Element* findChild(const Element& element, std::string_view name);

} // namespace plcctl::schema

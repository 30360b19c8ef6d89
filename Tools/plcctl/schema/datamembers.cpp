#include "sharedattributes.h"

namespace plcctl::schema {

namespace {

constexpr Attribute MemberAttributes[] = {
    {
        .name = "Off",
        .form = Form::Offset,
        .whenMissing = "0x0",
        .required = true,
        .least = 0,
        .most = LargestTag,
        .unit = "bytes",
        .meaning = "Where the member begins, counted from the beginning of the struct, in hexadecimal: 0x1f. Members "
                   "stand by rising offset, since the last one alone decides on the struct's size",
        .mistake = "The first two characters are dropped, whatever they are, so 16 without 0x is 0. What is no "
                   "hexadecimal number is 0",
    },
    {
        .name = "DataType",
        .form = Form::DataType,
        .whenMissing = "0",
        .required = true,
        .least = 1,
        .most = 12,
        .meaning = "Type of the member, and for texts their length in characters without the terminator: 11_16",
        .mistake = "A member of an unknown type has no data. A struct can't be the member of another",
        .choices = MemberTypes,
        .onlyChoices = true,
    },
    {
        .name = "DName",
        .form = Form::Text,
        .whenMissing = "",
        .required = true,
        .meaning = "Name of the member: its key in a JSON object",
        .mistake =
            "Nothing is escaped: a quote in the name makes published JSON invalid. Of two members with one name, "
            "a reader of the JSON sees one",
        .pattern = R"([^"\\]*)",
        .unique = true,
    },
    {
        .name = "Ent",
        .form = Form::Signed,
        .whenMissing = "0",
        .least = 0,
        .most = LargestTag,
        .meaning = "0 for one value, else the number of elements of an array; plays no part for texts",
        .mistake = "A text that is no number is 0. A negative number is no data",
    },
};

constexpr Element Members[] = {
    {.name = "DataMember",
     .attributes = MemberAttributes,
     .required = true,
     .repeated = true,
     .meaning = "One member. After the first one, an element of any name is read as a member"},
};

} // namespace

constinit const Element DataMembers{
    .name = "DataMembers",
    .children = Members,
    .meaning = "The members of a struct (DataType 10); not looked at for any other type",
};

} // namespace plcctl::schema

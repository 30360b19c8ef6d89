#include "convert/convert.h"

#include "servicecode/serviceprogram.h"

#include "devicepaths.h"

#include <memory>

namespace plcctl {

CLI::App* describeConvert(CLI::App& app, ConvertArguments& arguments)
{
    CLI::App* command =
        app.add_subcommand("convert", "Show what a message becomes in a tag, or a tag as a message, by the service's "
                                      "own code");
    arguments.configDirectory = DevicePaths::ConfigurationDirectory;
    command->add_option("TYPE", arguments.first, "Of the tag; left out with --subscription and --publication")
        ->type_name("");
    command->add_option("VALUE", arguments.second, "The payload; the other way, the tag's bytes in hexadecimal")
        ->type_name("");
    auto* subscription =
        command->add_option("--subscription", arguments.subscription, "Take the type of this subscription's tag")
            ->type_name("SUBSCRIPTION");
    auto* publish = command->add_flag("--publish", arguments.publish, "The other way: bytes of a tag to a message");
    command
        ->add_option("--publication", arguments.publication,
                     "Take the type of this publication's tag; without BYTES, what the tag holds now")
        ->type_name("PUBLICATION")
        ->excludes(subscription);
    subscription->excludes(publish);
    command->add_option("--format", arguments.format, "Payload format of a TYPE: buffer (0) or json (1)")
        ->check(CLI::IsMember({"buffer", "json"}))
        ->capture_default_str();
    command->add_option("--file", arguments.file, "Take the payload from this file, - for standard input")
        ->type_name("FILE");
    command->add_flag("--hex", arguments.hex, "The payload is given in hexadecimal digits");
    command->add_option("--config", arguments.configDirectory, "Configuration files")
        ->type_name("DIR")
        ->capture_default_str();
    command->add_flag("--json", arguments.json, "Print JSON");
    command->footer("TYPE is BOOL, INT8 to UINT32, REAL, STR8, STR16 or STR32, with [ELEMENTS] behind it for an array\n"
                    "and :CHARACTERS for the length of a text. No tag is written.\n"
                    "A payload that begins with - goes behind --.\n"
                    "Examples:\n"
                    "  plcctl convert REAL 21.5\n"
                    "  plcctl convert 'INT32[4]' '[1,2,3,4]'\n"
                    "  plcctl convert STR16:20 'Größe'\n"
                    "  plcctl convert --format buffer UINT16 --hex 2c01\n"
                    "  plcctl convert --subscription 'recipe setpoint' '{\"name\":\"cola\"}'\n"
                    "  plcctl convert --publish REAL 0000ac41\n"
                    "  plcctl convert --publication batch");
    return command;
}

void addConvertCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<ConvertArguments>();
    describeConvert(app, *arguments)->callback([&action, arguments] {
        action = []() -> ExitCode { becomeServiceProgram(); };
    });
}

} // namespace plcctl

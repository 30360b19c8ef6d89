#include "commands.h"
#include "devicepaths.h"
#include "memoryfile.h"
#include "require.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>

namespace {

namespace fs = std::filesystem;
using Fuzzing::require;

constexpr char Separator = '\f'; // XML has no use for it
constexpr std::size_t LongestLine = 1000;
constexpr int MostAtOnePlace = 50; // findings
// An entry of four bytes, "<x/>", lacks some twenty attributes, and each has its line.
constexpr std::size_t MostOutputPerByte = 2000;
constexpr std::size_t MostOutputAnyway = 64 * 1024;

// A device's file tree: the sample's, with the four files in memory. It is left behind where an input ends the process.
class Device
{
public:
    Device()
    {
        const fs::path sample = SAMPLE_DEVICE;
        const fs::path configuration = m_root.string() + DevicePaths::ConfigurationDirectory;
        fs::create_directories(configuration);
        fs::create_directory_symlink(sample / "VEL/System", m_root / "VEL/System");
        for (const fs::directory_entry& entry :
             fs::directory_iterator(sample.string() + DevicePaths::ConfigurationDirectory)) {
            if (entry.path().extension() != ".xml")
                fs::create_symlink(entry.path(), configuration / entry.path().filename());
        }
        for (std::size_t at = 0; at < m_files.size(); ++at)
            fs::create_symlink(m_files[at].path().toStdString(), configuration / Names[at]);
    }
    ~Device() { fs::remove_all(m_root); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    [[nodiscard]] const fs::path& root() const { return m_root; }

    // Takes the input apart. The last part holds all that is left, and parts that are missing are empty files.
    void write(const std::uint8_t* data, std::size_t size)
    {
        QByteArray rest(reinterpret_cast<const char*>(data), static_cast<int>(size));
        for (MemoryFile& file : m_files) {
            const int separator = &file == &m_files.back() ? -1 : rest.indexOf(Separator);
            const int end = separator == -1 ? rest.size() : separator;
            file.setContent(rest.left(end));
            rest = rest.mid(end + 1);
        }
    }

private:
    static constexpr std::array Names{DevicePaths::GeneralFile, DevicePaths::BrokersFile,
                                      DevicePaths::SubscriptionsFile, DevicePaths::PublicationsFile};

    static fs::path newDirectory()
    {
        std::string name = (fs::temp_directory_path() / "checkfiles-XXXXXX").string();
        require(mkdtemp(name.data()) != nullptr, "a directory can be made");
        return name;
    }

    const fs::path m_root = newDirectory();
    std::array<MemoryFile, Names.size()> m_files;
};

// The command as the program has it, parsed once for all inputs.
class Check
{
public:
    explicit Check(const std::string& arguments)
    {
        plcctl::addCheckCommand(m_app, m_action);
        m_app.parse("check --at 2026-01-01 " + arguments);
    }

    // What it prints on standard output.
    std::string run()
    {
        std::ostringstream out;
        std::ostringstream notes;
        std::streambuf* const outBefore = std::cout.rdbuf(out.rdbuf());
        std::streambuf* const notesBefore = std::cerr.rdbuf(notes.rdbuf());
        m_action();
        std::cout.rdbuf(outBefore);
        std::cerr.rdbuf(notesBefore);
        return out.str();
    }

private:
    CLI::App m_app;
    plcctl::Action m_action;
};

bool commandsTerminal(char character)
{
    const auto byte = static_cast<std::uint8_t>(character);
    return byte < 0x20 || byte == 0x7F;
}

void judgeLines(const std::string& text, const std::string& root)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        require(line.size() <= LongestLine, "a line is short enough to be read");
        require(line.starts_with(root), "a line begins with the path of a file");
        require(std::none_of(line.begin(), line.end(), commandsTerminal), "a line commands no terminal");
    }
}

void judgePlaces(const nlohmann::json& findings)
{
    std::map<std::tuple<std::string, int, int>, int> counts;
    for (const auto& finding : findings) {
        const std::tuple place{finding["file"].get<std::string>(), finding["line"].get<int>(),
                               finding["column"].get<int>()};
        // What stands in a text that is no XML has no place of its own.
        const bool isStart = std::get<1>(place) == 1 && std::get<2>(place) == 1;
        require(++counts[place] <= MostAtOnePlace || isStart, "nobody reads so many findings about one word");
    }
}

} // namespace

// `plcctl check` on the four files of a configuration, which stand one behind the other in an input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Device device;
    static Check check(device.root().string());
    static Check checkForScripts(device.root().string() + " --json");
    device.write(data, size);

    const std::string text = check.run();
    require(text.size() <= MostOutputAnyway + MostOutputPerByte * size, "the output grows with the input alone");
    judgeLines(text, device.root().string());
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    const auto report = nlohmann::json::parse(checkForScripts.run());
    require(report["findings"].size() == lines, "scripts get the same findings as people");
    judgePlaces(report["findings"]);
    return 0;
}

#pragma once

#include "check/document.h"
#include "check/finding.h"
#include "deviceconfig.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace plcctl::check {

// The files in the order in which the service reads them, which is also that of their findings.
enum FileIndex : int
{
    GeneralFile,
    BrokersFile,
    SubscriptionsFile,
    PublicationsFile,
    ConfigurationFiles // how many there are
};

namespace PayloadFormat {
inline constexpr int Raw = 0;
inline constexpr int Json = 1;
inline constexpr int Protobuf = 2;           // a script makes the message
inline constexpr int TriggeredOperation = 3; // a script is run, nothing is published
} // namespace PayloadFormat

// STR8, STR16 or STR32.
bool isTextType(int argType);

struct SourceFile
{
    std::string path;
    Document document; // empty where the file could not be read
};

// Where the configuration lies.
struct Surroundings
{
    std::string directory;           // of the four files
    std::optional<std::string> root; // of the device's file tree around it, where there is one

    // The path of a device's file, "/VEL/...", in the tree; nothing without a tree.
    [[nodiscard]] std::optional<std::string> inTree(const std::string& devicePath) const;
    [[nodiscard]] std::string inDirectory(const QString& fileName) const;
};

// An element with the attributes of a broker, publication, subscription or member, converted as the service does it: a
// missing text is empty, and what is no number is 0. It points into the document.
class Entry
{
public:
    Entry(int file, const Element& element) : m_file(file), m_element(&element) {}

    [[nodiscard]] const Element& element() const { return *m_element; }
    [[nodiscard]] QString text(std::string_view attribute) const;
    [[nodiscard]] int number(std::string_view attribute) const;
    [[nodiscard]] std::uint32_t address(std::string_view attribute) const;
    [[nodiscard]] ValueLayout layout() const; // DataType and Ent

    [[nodiscard]] Site site() const { return {m_file, m_element->place}; }
    // Of the attribute, or of the element where the attribute is missing.
    [[nodiscard]] Site site(std::string_view attribute) const;

private:
    int m_file;
    const Element* m_element;
};

struct Broker
{
    Entry entry;
    int id;
    std::uint32_t level; // of encryption

    [[nodiscard]] bool hasWill() const { return entry.number("LastWillAddr") != -1; }
};

struct Member
{
    Entry entry;
    QString name;
    ValueLayout value;
    std::int64_t offset; // bytes
    std::int64_t size;   // bytes
};

// A publication or subscription.
struct Caller
{
    Entry entry;
    bool isPublication;
    int id;
    int brokerId;
    int format; // MQTTPayloadFormat
    ValueLayout value;
    std::vector<Member> members; // of a struct
    std::int64_t size;           // bytes of the tag, as the service counts them
};

struct Configuration
{
    Surroundings surroundings;
    std::array<SourceFile, ConfigurationFiles> files;
    // Filled from the files by collectEntries; they point into these.
    std::vector<Broker> brokers = {};
    std::vector<Caller> subscriptions = {};
    std::vector<Caller> publications = {};

    [[nodiscard]] const Element* top(FileIndex file) const;
    // The first one, as for the service; null where there is none.
    [[nodiscard]] const Broker* broker(int id) const;
};

// Calls check(caller) for the subscriptions, then for the publications.
template<typename Check>
void forEachCaller(const Configuration& configuration, Check check)
{
    for (const auto* callers : {&configuration.subscriptions, &configuration.publications}) {
        for (const Caller& caller : *callers)
            check(caller);
    }
}

void collectEntries(Configuration& configuration);

} // namespace plcctl::check

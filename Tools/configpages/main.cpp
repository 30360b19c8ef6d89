// Writes what the repository holds of the table of configuration attributes: schemas, manual pages, tables of
// documents.

#include "manualpage.h"
#include "markdowntables.h"
#include "schema/configurationfiles.h"
#include "xsdschema.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using plcctl::schema::ConfigurationFile;

struct Page
{
    std::filesystem::path path; // below the repository
    std::string text;
};

std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path.string() + " can't be read");
    return {std::istreambuf_iterator(file), {}};
}

std::vector<Page> generatedPages(const std::filesystem::path& repository)
{
    const auto exampleOf = [&](std::string_view fileName) {
        return contentOf(repository / "docs" / "examples" / fileName);
    };
    std::vector<Page> pages;
    for (const ConfigurationFile& file : plcctl::schema::configurationFiles()) {
        const std::string name(file.name);
        pages.push_back({std::filesystem::path("schemas") / std::filesystem::path(name).replace_extension("xsd"),
                         ConfigPages::xsdSchema(file)});
        pages.push_back({std::filesystem::path("packaging") / "man" / (name + ".5"),
                         ConfigPages::manualPage(file, exampleOf(name))});
    }
    const std::filesystem::path document = "docs/configuration.md";
    pages.push_back({document, ConfigPages::withGeneratedParts(contentOf(repository / document), exampleOf)});
    return pages;
}

bool isUpToDate(const std::filesystem::path& path, const std::string& text)
{
    return std::filesystem::exists(path) && contentOf(path) == text;
}

void write(const std::filesystem::path& path, const std::string& text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error(path.string() + " can't be written");
}

int run(const std::filesystem::path& repository, bool isCheck)
{
    int outdated = 0;
    for (const Page& page : generatedPages(repository)) {
        const std::filesystem::path path = repository / page.path;
        if (isUpToDate(path, page.text))
            continue;
        ++outdated;
        std::cout << page.path.string() << (isCheck ? " is not what the table gives\n" : " is written\n");
        if (!isCheck)
            write(path, page.text);
    }
    if (isCheck && outdated > 0)
        std::cout << "Write them anew with: configpages write " << repository.string() << "\n";
    return isCheck && outdated > 0 ? 1 : 0;
}

} // namespace

int main(int argc, char* argv[])
{
    CLI::App app("Schemas, manual pages and tables of documents, from the table of configuration attributes");
    std::string repository;
    app.require_subcommand(1);
    for (CLI::App* const command : {app.add_subcommand("write", "Write those that are not up to date"),
                                    app.add_subcommand("check", "Status 1 when one is not up to date")})
        command->add_option("repository", repository, "Top directory of the sources")->required();
    CLI11_PARSE(app, argc, argv);
    try {
        return run(repository, app.got_subcommand("check"));
    } catch (const std::exception& problem) {
        std::cerr << "configpages: " << problem.what() << "\n";
        return 2;
    }
}

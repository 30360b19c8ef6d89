#include "proofrunner.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

// The stand-in for the controller's reporter: a text file with one line a result and the totals at its end.
namespace {

// The class has no members of its own, since its size belongs to the interface; one run at a time is all there is.
struct Run
{
    std::string name;
    std::ofstream file;
    unsigned int passed = 0;
    unsigned int failed = 0;
};

Run& run()
{
    static Run theRun;
    return theRun;
}

std::string text(const char* given)
{
    return given != nullptr ? given : "";
}

} // namespace

void ProofRunner::InitAutoTest(const char* name, const char* resultFile)
{
    run() = Run{.name = text(name), .file = {}};
    const std::filesystem::path path = text(resultFile);
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    run().file.open(path, std::ios::trunc);
    if (!run().file) {
        std::cerr << "ProofRunner: can't write " << path << "; the results of this run are not kept" << std::endl;
        return;
    }
    run().file << "Self-test " << run().name << std::endl;
}

void ProofRunner::ReportOnTest(const char* description, const char* detail, bool passed)
{
    ++(passed ? run().passed : run().failed);
    run().file << (passed ? "PASS  " : "FAIL  ") << text(description);
    if (const std::string more = text(detail); !more.empty())
        run().file << "  " << more;
    run().file << std::endl; // flushed: a crash in the next test must not take this result along
}

void ProofRunner::PrintSummary()
{
    const unsigned int total = run().passed + run().failed;
    const std::string summary = run().name + ": " + std::to_string(total) + " tests, " + std::to_string(run().passed) +
                                " passed, " + std::to_string(run().failed) + " failed";
    run().file << summary << std::endl;
    std::cout << summary << std::endl;
}

#include "bench/observer/measurement.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <exception>

namespace {

nlohmann::json toJson(const Outcome& outcome)
{
    return {{"start_up_seconds", outcome.startUpSeconds},
            {"resident_kib", outcome.memory.residentKiB},
            {"proportional_kib", outcome.memory.proportionalKiB},
            {"window_seconds", outcome.window.seconds},
            {"processor_ns", outcome.window.processorNanoseconds},
            {"messages", outcome.window.messages},
            {"acknowledged", outcome.window.acknowledged},
            {"expected", outcome.window.expected},
            {"at_rest", outcome.window.atRest},
            {"begin_marks", outcome.window.beginMarks},
            {"end_marks", outcome.window.endMarks},
            {"record", outcome.record},
            {"tag", outcome.tag}};
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Starts the process under test as its controller would, watches it through tag memory and the kernel, "
                 "ends it, and prints what was measured as one JSON object.");
    Plan plan;
    std::string dataFile;
    std::string outputFile = "/tmp/process-under-test.txt";
    std::vector<std::string> command;
    app.add_option("--general", plan.addresses.general, "Position of the process-wide status record")
        ->capture_default_str();
    app.add_option("--statistics", plan.addresses.statistics, "Position of the statistics record")
        ->capture_default_str();
    app.add_option("--records", plan.addresses.records,
                   "Position of the first subscription's status record; 0 for none")
        ->capture_default_str();
    app.add_option("--data", plan.addresses.data, "Position of the first tag")->capture_default_str();
    app.add_option("--data-file", dataFile, "What the tags hold at the start, from the first one on")->required();
    app.add_option("--tag-size", plan.tagSize, "Bytes of the first subscription's tag")->capture_default_str();
    app.add_option("--publications", plan.publications, "Number of timers in the process")->capture_default_str();
    app.add_option("--interval", plan.interval, "Milliseconds between ticks; 0 for a stream")->capture_default_str();
    app.add_option("--warm-up", plan.warmUp, "Seconds between the first message and the window")->capture_default_str();
    app.add_option("--window", plan.window, "Seconds of measuring; 0 for the start-up only")->capture_default_str();
    app.add_option("--patience", plan.patience, "Seconds until the process must run, and messages must come")
        ->capture_default_str();
    app.add_option("--sender", plan.sender, "Command that sends messages to the process");
    app.add_option("--burst", plan.burst, "Messages that the sender ends after; 0 when it sends through the window")
        ->capture_default_str();
    app.add_option("--mark", plan.mark, "Command for either end of the window; {pid} is the process");
    app.add_option("--output", outputFile, "File for what the process prints")->capture_default_str();
    app.add_option("command", command, "The program and its arguments, behind --")->required();
    CLI11_PARSE(app, argc, argv);

    try {
        prepareController(plan.addresses, dataFile);
        const auto started = std::chrono::steady_clock::now();
        ChildProcess process(command, outputFile);
        const Outcome outcome = measure(plan, process, started);
        process.end();
        std::printf("%s\n", toJson(outcome).dump().c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_observer: %s\n", error.what());
        return 1;
    }
}

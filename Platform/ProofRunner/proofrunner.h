#pragma once

// The reporter of the built-in self-test. The names and argument types are the binary interface of libProofRunner.so.
class ProofRunner
{
public:
    // Begins a run: names it and the file that gets its results.
    void InitAutoTest(const char* name, const char* resultFile);

    // Adds one result.
    void ReportOnTest(const char* description, const char* detail, bool passed);

    // Ends the run: writes the totals.
    void PrintSummary();
};

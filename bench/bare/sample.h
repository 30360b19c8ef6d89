#pragma once

#include <cstddef>
#include <cstdint>

// The struct of ten members that the JSON rows carry, by hand and not by a table of members. sample.py has its layout,
// its keys and its values; every run is checked against them.
struct Sample
{
    std::uint8_t run; // a boolean
    std::int8_t mode;
    std::uint8_t lane;
    std::int16_t trim;
    std::uint16_t speed;
    std::int32_t offset;
    std::uint32_t total;
    float temp;
    float load;
    char batch[21]; // zero-terminated UTF-8
};

inline constexpr std::size_t SampleSize = offsetof(Sample, batch) + sizeof(Sample::batch); // bytes in tag memory
inline constexpr std::size_t LongestSampleText = 256;                                      // characters of JSON

// Writes the JSON text, not terminated, and returns its length. `text` has room for the longest.
std::size_t formatSample(const Sample& sample, char* text);

// Takes the members out of a JSON object; false when the text is no JSON. A member that is missing becomes 0.
bool parseSample(const char* json, int size, Sample& sample);

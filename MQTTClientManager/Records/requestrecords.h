#pragma once

#include <cstddef>

// The queue on which the controller's runtime sends its requests. The runtime creates it; the service only reads.
inline constexpr char RequestQueueName[] = "/MQTTQueue";
// Largest record on the queue, and so the message size to create it with, in bytes.
inline constexpr std::size_t RequestRecordSize = 1500;

#pragma once

// Access to the controller's tag memory. The names and argument types below are the binary interface of
// libTagMemory.so: the controller brings a library of its own with the same symbols, so nothing here may change.

// One entry of a tag registration.
struct HdrOperandData_t
{
    unsigned short length;   // bytes of the tag
    unsigned short reserved; // always 0
    unsigned int Address;    // operand address, not converted
};
static_assert(sizeof(HdrOperandData_t) == 8);

// All operations may be called from any thread.
class TagMemory
{
public:
    // May be called more than once in a process.
    static int Open();

    // Reads `size` bytes at position `address`. Where the position is outside tag memory `data` stays as it is.
    static int Read(unsigned short size, unsigned long address, unsigned char* data);

    // Writes `size` bytes at position `address`; 0 on success.
    static int Write(unsigned short size, unsigned long address, unsigned char const* data);

    // Asks the controller to keep the listed tags in step with this process. Returns the registration's ID, 0 on
    // failure.
    static unsigned int RegSync(unsigned long, HdrOperandData_t const* entries, unsigned char count, unsigned char);

    static int UnRegSync(unsigned long regID, unsigned char);

    // The position for Read and Write that belongs to an operand address.
    static unsigned long OperandAddr2OffsetConversion(unsigned long address);
};

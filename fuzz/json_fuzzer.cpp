// Reads a file of tables as kestan-control does. It is refused with a message, or it has
// the same tables when they are written and read again.

#include "fuzz/round_trip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Multiplex multiplex;
    try {
        multiplex =
            read_multiplex_file(memory_file({reinterpret_cast<const char*>(data), size}));
    } catch (const FileMistake&) {
        return 0;
    }
    check_round_trip(multiplex);
    return 0;
}

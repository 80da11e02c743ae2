// A file of tables as kestan-control reads it: it is refused with a word, or it says the
// same when it is written and read again.

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

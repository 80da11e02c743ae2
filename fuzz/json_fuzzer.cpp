// A file of tables as kestan-control reads it: it is refused with a word, or it says the
// same when it is written and read again.

#include "fuzz/json_round_trip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile file(data, size);
    Multiplex multiplex;
    try {
        multiplex = read_multiplex_files({file.path()});
    } catch (const FileMistake&) {
        return 0;
    }
    check_round_trip(multiplex);
    return 0;
}

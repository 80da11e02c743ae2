#ifndef KESTAN_TESTS_SUPPORT_RANDOM_TABLES_H
#define KESTAN_TESTS_SUPPORT_RANDOM_TABLES_H

#include <cstdint>
#include <random>
#include <vector>

#include "thrift/dvb_tables_types.h"

// Tables with random content, reproducible from a seed. Every value is in its range, and
// often one of its limits.
class RandomTables {
public:
    explicit RandomTables(std::uint32_t seed) : random_(seed) {}

    // Returns a number from 0 to n - 1.
    std::size_t below(std::size_t n) { return random_() % n; }

    orvel::thrift::dvb_tables::PAT pat(std::size_t programs);
    orvel::thrift::dvb_tables::CAT cat(std::size_t descriptor_bytes);
    orvel::thrift::dvb_tables::SDT sdt(std::size_t services,
                                       std::size_t descriptor_bytes);
    // Returns a PMT whose entries take at most `bytes` in all.
    orvel::thrift::dvb_tables::PMT pmt(std::int32_t program_number, std::size_t bytes);

    // Returns descriptors of exactly `bytes` in all, headers included. A rest of one
    // byte, which no descriptor can fill, is left out.
    std::vector<orvel::thrift::dvb_tables::Descriptor> descriptors(std::size_t bytes);

private:
    std::int32_t up_to(std::int32_t highest);

    std::mt19937 random_;
};

#endif

#ifndef KESTAN_TESTS_SUPPORT_RANDOM_TABLES_H
#define KESTAN_TESTS_SUPPORT_RANDOM_TABLES_H

#include <cstdint>
#include <random>
#include <vector>

#include "thrift/dvb_tables_types.h"

// Tables with random content, reproducible from a seed. Every value is in its range, its
// limits more often than chance would have it.
class RandomTables {
public:
    explicit RandomTables(std::uint32_t seed) : random_(seed) {}

    // 0 to n - 1.
    std::size_t below(std::size_t n) { return random_() % n; }

    orvel::thrift::dvb_tables::PAT pat(std::size_t programs);
    orvel::thrift::dvb_tables::CAT cat(std::size_t descriptor_bytes);
    orvel::thrift::dvb_tables::SDT sdt(std::size_t services,
                                       std::size_t descriptor_bytes);
    // The whole table's entries take `bytes` at most.
    orvel::thrift::dvb_tables::PMT pmt(std::int32_t program_number, std::size_t bytes);

    // Descriptors of just so many bytes in all, their headers included; one byte, for
    // which there is no descriptor, is left out.
    std::vector<orvel::thrift::dvb_tables::Descriptor> descriptors(std::size_t bytes);

private:
    std::int32_t up_to(std::int32_t highest);

    std::mt19937 random_;
};

#endif

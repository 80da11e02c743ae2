#ifndef KESTAN_BENCH_TABLES_H
#define KESTAN_BENCH_TABLES_H

#include <cstddef>
#include <cstdint>

#include "thrift/dvb_tables_types.h"

// Tables as they are in real multiplexes.

constexpr std::uint16_t kFirstPmtPid = 0x20;

[[nodiscard]] orvel::thrift::dvb_tables::PAT make_pat(std::size_t programs);

// Each service has its name and its provider's, 40 bytes of descriptors in all.
[[nodiscard]] orvel::thrift::dvb_tables::SDT make_sdt(std::size_t services);

// A video stream and sound in as many languages as fill `packets` transport packets, 1 to
// 5.
[[nodiscard]] orvel::thrift::dvb_tables::PMT make_pmt(std::uint16_t service,
                                                      std::size_t packets = 1);

#endif

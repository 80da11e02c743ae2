#ifndef KESTAN_TOOLS_RECEIVE_SECTION_FEED_H
#define KESTAN_TOOLS_RECEIVE_SECTION_FEED_H

#include <cstddef>
#include <cstdint>
#include <map>

#include "tools/receive/table_collector.h"

// Gives a collector sections as packets of the PIDs that carry them. The collector must
// live longer. One thread.
class SectionFeed {
public:
    explicit SectionFeed(TableCollector& collector) : collector_(collector) {}

    void push(std::uint16_t pid, const std::uint8_t* section, std::size_t size);

private:
    TableCollector& collector_;
    std::map<std::uint16_t, std::uint8_t> counters_;  // by PID
};

#endif

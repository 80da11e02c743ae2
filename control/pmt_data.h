#ifndef KESTAN_CONTROL_PMT_DATA_H
#define KESTAN_CONTROL_PMT_DATA_H

#include <boost/intrusive/list.hpp>
#include <cstdint>
#include <memory>

#include "tables/table_carrousel.h"

// The handler's record of one service's PMT.
//
// Records of the same PID share its carrousel, which holds one sub-table per record and
// is registered with the muxer as long as there is a record. The carrousel owns the
// sub-table. Control thread only.
struct pmt_data : boost::intrusive::list_base_hook<> {
    pmt_data(std::uint16_t service, std::uint16_t pmt_pid)
        : service_id(service), pid(pmt_pid) {}

    std::uint16_t service_id;  // unique among the records
    std::uint16_t pid;
    SubTable* sub_table = nullptr;
    std::shared_ptr<TableCarrousel> carrousel;
};

// All records, in the order in which the services came; it does not own them.
using pmt_list = boost::intrusive::list<pmt_data>;

#endif

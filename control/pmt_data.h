#ifndef KESTAN_CONTROL_PMT_DATA_H
#define KESTAN_CONTROL_PMT_DATA_H

#include <cstdint>
#include <memory>

#include <boost/intrusive/list.hpp>
#include <boost/intrusive/set.hpp>

#include "tables/table_carrousel.h"

// The handler's record of one service's PMT.
//
// Records of the same PID share a carrousel, which has one sub-table per record and owns
// it. The carrousel is on the muxer as long as one of the records exists. Control thread
// only.
struct pmt_data : boost::intrusive::list_base_hook<> {
    using index_hook = boost::intrusive::set_member_hook<>;

    pmt_data(std::uint16_t service, std::uint16_t pmt_pid)
        : service_id(service), pid(pmt_pid) {}

    std::uint16_t service_id;  // unique among the records
    std::uint16_t pid;
    SubTable* sub_table = nullptr;
    std::shared_ptr<TableCarrousel> carrousel;
    index_hook in_services;
    index_hook in_pids;
};

// All records in the order in which the services came. It does not own them.
using pmt_list = boost::intrusive::list<pmt_data>;

// Indexes of the same records. With thousands of services, a search of the list would
// take many times longer than the rest of an update.
template <std::uint16_t pmt_data::*Member>
struct pmt_key {
    using type = std::uint16_t;
    type operator()(const pmt_data& record) const { return record.*Member; }
};
using pmts_by_service =
    boost::intrusive::set<pmt_data,
                          boost::intrusive::key_of_value<pmt_key<&pmt_data::service_id>>,
                          boost::intrusive::member_hook<pmt_data, pmt_data::index_hook,
                                                        &pmt_data::in_services>>;
using pmts_by_pid = boost::intrusive::multiset<
    pmt_data, boost::intrusive::key_of_value<pmt_key<&pmt_data::pid>>,
    boost::intrusive::member_hook<pmt_data, pmt_data::index_hook, &pmt_data::in_pids>>;

#endif

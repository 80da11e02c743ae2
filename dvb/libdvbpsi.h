#ifndef KESTAN_DVB_LIBDVBPSI_H
#define KESTAN_DVB_LIBDVBPSI_H

// libdvbpsi's headers can be included once only and do not include what they need: this
// one stands for all of them, in an order that works, and gives their objects owners.

#include <sys/types.h>

#include <cstdint>
#include <memory>

// clang-format off
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/cat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/sdt.h>
#include <dvbpsi/dr_09.h>
#include <dvbpsi/dr_0a.h>
#include <dvbpsi/dr_48.h>
// clang-format on

template <auto Delete>
struct DvbpsiDeleter {
    template <typename Object>
    void operator()(Object* object) const noexcept {
        Delete(object);
    }
};

using DvbpsiPtr = std::unique_ptr<dvbpsi_t, DvbpsiDeleter<dvbpsi_delete>>;
using PatPtr = std::unique_ptr<dvbpsi_pat_t, DvbpsiDeleter<dvbpsi_pat_delete>>;
using CatPtr = std::unique_ptr<dvbpsi_cat_t, DvbpsiDeleter<dvbpsi_cat_delete>>;
using SdtPtr = std::unique_ptr<dvbpsi_sdt_t, DvbpsiDeleter<dvbpsi_sdt_delete>>;
using PmtPtr = std::unique_ptr<dvbpsi_pmt_t, DvbpsiDeleter<dvbpsi_pmt_delete>>;

// A chain of descriptors, with what has been decoded from them: the pointer is its first,
// and owns all.
using DescriptorPtr =
    std::unique_ptr<dvbpsi_descriptor_t, DvbpsiDeleter<dvbpsi_DeleteDescriptors>>;

// A chain of sections: the pointer is its first, and owns all.
using SectionsPtr =
    std::unique_ptr<dvbpsi_psi_section_t, DvbpsiDeleter<dvbpsi_DeletePSISections>>;

#endif

#ifndef KESTAN_DVB_LIBDVBPSI_H
#define KESTAN_DVB_LIBDVBPSI_H

// The door to libdvbpsi. Include this header instead of libdvbpsi's own headers: those
// can be included only once and do not include what they need. It also gives owners to
// libdvbpsi's objects.

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

// A chain of sections. The pointer is the first section and owns the whole chain.
using SectionsPtr =
    std::unique_ptr<dvbpsi_psi_section_t, DvbpsiDeleter<dvbpsi_DeletePSISections>>;

#endif

#ifndef KESTAN_DVB_LIBDVBPSI_H
#define KESTAN_DVB_LIBDVBPSI_H

// The door to libdvbpsi. Include this header instead of libdvbpsi's own headers: those
// can be included only once and do not include what they need. It has the library's
// tables of MPEG-2 and DVB, and owners for its objects.

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
#include <dvbpsi/nit.h>
#include <dvbpsi/sdt.h>
#include <dvbpsi/bat.h>
#include <dvbpsi/eit.h>
#include <dvbpsi/tot.h>
// clang-format on

template <auto Delete>
struct DvbpsiDeleter {
    template <typename Object>
    void operator()(Object* object) const noexcept {
        Delete(object);
    }
};

// Owns an Object of libdvbpsi that the function Delete frees.
template <typename Object, auto Delete>
using DvbpsiOwner = std::unique_ptr<Object, DvbpsiDeleter<Delete>>;

using DvbpsiPtr = DvbpsiOwner<dvbpsi_t, dvbpsi_delete>;

// A chain of sections. The pointer is the first section and owns the whole chain.
using SectionsPtr = DvbpsiOwner<dvbpsi_psi_section_t, dvbpsi_DeletePSISections>;

#endif

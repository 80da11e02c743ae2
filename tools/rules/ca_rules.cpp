#include <cstdint>
#include <set>

#include "tools/json/number_text.h"
#include "tools/rules/ca_descriptor.h"
#include "tools/rules/rule.h"

using namespace orvel::thrift::dvb_tables;

namespace {

void check_ca_system_not_in_cat(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    std::set<std::uint16_t> systems;
    if (multiplex.cat) {
        for (const Descriptor& descriptor : multiplex.cat->descriptors) {
            const auto ca = ca_descriptor(descriptor);
            if (ca) systems.insert(ca->system_id);
        }
    }
    for (std::size_t i = 0; i < multiplex.pmts.size(); ++i) {
        tables.for_each_descriptor_of_pmt(
            i, [&](TablePlace place, const std::string& field, const Descriptor& found) {
                const auto ca = ca_descriptor(found);
                if (!ca || systems.count(ca->system_id) != 0) return;
                report.add(place, field,
                           (multiplex.cat ? "the CAT has no entry for CA system "
                                          : "there is no CAT for CA system ") +
                               hex_number(ca->system_id, 4) +
                               ": receivers get no entitlements for it");
            });
    }
}

void check_free_ca_mode_differs(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (!multiplex.sdt) return;
    for (std::size_t i = 0; i < multiplex.sdt->services.size(); ++i) {
        const SDTService& service = multiplex.sdt->services[i];
        const auto pmt = tables.pmt_of(service.service_id);
        if (!pmt) continue;
        bool has_ca = false;
        tables.for_each_descriptor_of_pmt(
            *pmt, [&](TablePlace, const std::string&, const Descriptor& descriptor) {
                if (descriptor.tag == kCaTag) has_ca = true;
            });
        if (has_ca == service.free_ca_mode) continue;
        report.add(kInSdt, element("services", i) + ".free_ca_mode",
                   has_ca ? "free_CA_mode is false, but the PMT of " +
                                service_text(service.service_id) +
                                " has CA descriptors: receivers list it as free"
                          : "free_CA_mode is true, but the PMT of " +
                                service_text(service.service_id) +
                                " has no CA descriptor: receivers list it as scrambled");
    }
}

}  // namespace

std::vector<Rule> ca_rules() {
    return {
        {"ca_system_not_in_cat", Severity::kWarning, "ISO/IEC 13818-1, 2.6.16",
         check_ca_system_not_in_cat},
        {"free_ca_mode_differs", Severity::kWarning, "ETSI EN 300 468, 5.2.3",
         check_free_ca_mode_differs},
    };
}

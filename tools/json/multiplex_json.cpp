#include "tools/json/multiplex_json.h"

#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <boost/algorithm/string/join.hpp>

#include "tools/json/descriptor_json.h"
#include "tools/json/number_text.h"

using nlohmann::ordered_json;
using namespace orvel::thrift::dvb_tables;

namespace {

constexpr const char* kProgramNumber = "program_number";

// A visitor that collects the names of the fields.
struct Names {
    std::vector<std::string> names;

    template <typename Member>
    void number(Member, const NumberField& field) {
        names.emplace_back(field.name);
    }
    template <typename Member>
    void flag(Member, const char* name, bool) {
        names.emplace_back(name);
    }
    template <typename Member>
    void list(Member, const char* name) {
        names.emplace_back(name);
    }
};

template <typename Structure>
std::vector<std::string> names_of() {
    Names names;
    TableFields<Structure>::visit(names);
    return names.names;
}

void read(const JsonNode& node, Descriptor& descriptor) {
    descriptor = descriptor_from_json(node);
}

template <typename Structure>
void read(const JsonNode& node, Structure& structure);

std::int32_t read(const JsonNode& node, const NumberField& field) {
    return node[field.name].number(field.lowest, field.highest());
}

// Returns the number of a service if the field is one.
std::optional<std::int64_t> service_in(const JsonNode& node, const char* name) {
    const auto service = node.number_if_any(name);
    return service && *service >= 0 && *service <= UINT16_MAX ? service : std::nullopt;
}

// Returns the node of a program or service, so that each remark on it says its number.
// Program 0 is no service.
JsonNode about_service(const JsonNode& node) {
    for (const char* const name : {kProgramNumber, "service_id"}) {
        const auto service = service_in(node, name);
        if (service && *service != 0)
            return node.about("service " + std::to_string(*service));
    }
    return node;
}

// A visitor that reads the fields. Keeps the mistakes of each.
template <typename Structure>
struct Reader {
    const JsonNode& node;
    Structure& structure;

    void number(std::int32_t Structure::*member, const NumberField& field) {
        if (field.is_optional && !node.has(field.name)) return;
        node.keep([&] { structure.*member = read(node, field); });
    }
    void flag(bool Structure::*member, const char* name, bool if_absent) {
        structure.*member = if_absent;
        if (!node.has(name)) return;
        node.keep([&] { structure.*member = node[name].boolean(); });
    }
    template <typename Element>
    void list(std::vector<Element> Structure::*member, const char* name) {
        constexpr bool is_of_service = !std::is_same_v<Element, Descriptor>;
        node.keep([&] {
            for (const JsonNode& element : node.elements_of(name)) {
                const JsonNode named = is_of_service ? about_service(element) : element;
                named.keep([&] { read(named, (structure.*member).emplace_back()); });
            }
        });
    }
};

template <typename Structure>
void read(const JsonNode& node, Structure& structure) {
    static const std::vector<std::string> names = names_of<Structure>();
    node.keep_unknown_fields(names);
    TableFields<Structure>::visit(Reader<Structure>{node, structure});
}

void read(const JsonNode& node, PmtOnPid& to) {
    std::vector<std::string> names = names_of<PMT>();
    names.insert(names.begin(), kPmtPidField.name);
    node.keep_unknown_fields(names);
    node.keep([&] { to.pid = static_cast<std::uint16_t>(read(node, kPmtPidField)); });
    TableFields<PMT>::visit(Reader<PMT>{node, to.pmt});
}

std::vector<PmtOnPid> read_pmts(const std::vector<JsonNode>& elements) {
    std::vector<PmtOnPid> pmts;
    std::map<std::int64_t, std::size_t> place_of;  // by service
    for (const JsonNode& element : elements) {
        const JsonNode node = about_service(element);
        node.keep([&] { read(node, pmts.emplace_back()); });
        const auto service = service_in(node, kProgramNumber);
        if (!service) continue;  // a mistake that is said already
        const auto [same, is_new] = place_of.emplace(*service, pmts.size() - 1);
        if (is_new) continue;
        node.keep([&, same = same] {
            node[kProgramNumber].mistake(fmt::format(
                "one PMT per service: pmts[{}] is this service's too", same->second));
        });
    }
    return pmts;
}

ordered_json write(const Descriptor& descriptor) {
    return descriptor_to_json(descriptor);
}

template <typename Structure>
ordered_json write(const Structure& structure);

void write(ordered_json& to, std::int32_t value, const NumberField& field) {
    const int digits = static_cast<int>(field.bits + 3) / 4;
    to[field.name] =
        field.is_hex ? ordered_json(hex_number(value, digits)) : ordered_json(value);
}

// A visitor that writes the fields that do not have their default.
template <typename Structure>
struct Writer {
    const Structure& structure;
    ordered_json& to;

    void number(std::int32_t Structure::*member, const NumberField& field) {
        const std::int32_t value = structure.*member;
        if (value != 0 || !field.is_optional) write(to, value, field);
    }
    void flag(bool Structure::*member, const char* name, bool if_absent) {
        if (structure.*member != if_absent) to[name] = structure.*member;
    }
    template <typename Element>
    void list(std::vector<Element> Structure::*member, const char* name) {
        constexpr bool is_left_out_if_empty = std::is_same_v<Element, Descriptor>;
        const std::vector<Element>& elements = structure.*member;
        if (is_left_out_if_empty && elements.empty()) return;
        ordered_json& list = to[name] = ordered_json::array();
        for (const Element& element : elements) list.push_back(write(element));
    }
};

template <typename Structure>
ordered_json write(const Structure& structure) {
    ordered_json to = ordered_json::object();
    TableFields<Structure>::visit(Writer<Structure>{structure, to});
    return to;
}

ordered_json write(const PmtOnPid& from) {
    ordered_json to;
    write(to, from.pid, kPmtPidField);
    TableFields<PMT>::visit(Writer<PMT>{from.pmt, to});
    return to;
}

const char* key_of(TableKind kind) {
    return table_info(kind).key;
}

}  // namespace

Multiplex multiplex_from_json(const JsonNode& root) {
    std::vector<std::string> names;
    for_each_single_table(
        [&](TableKind kind, auto) { names.emplace_back(key_of(kind)); });
    names.emplace_back(key_of(TableKind::kPmt));
    const std::string tables = boost::algorithm::join(names, ", ");
    names.emplace_back("$schema");
    Multiplex multiplex;
    root.keep([&] {
        root.keep_unknown_fields(names);
        const auto read_schema = [&] { static_cast<void>(root["$schema"].text()); };
        if (root.has("$schema")) root.keep(read_schema);  // for editors
        bool has_tables = false;
        for_each_single_table([&](TableKind kind, auto member) {
            if (!root.has(key_of(kind))) return;
            has_tables = true;
            root.keep([&] { read(root[key_of(kind)], (multiplex.*member).emplace()); });
        });
        multiplex.pmts = read_pmts(root.elements_of(key_of(TableKind::kPmt)));
        if (!has_tables && multiplex.pmts.empty() && !root.has_mistakes()) {
            root.mistake("at least one table of " + tables);
        }
    });
    return multiplex;
}

ordered_json multiplex_to_json(const Multiplex& multiplex) {
    ordered_json to = ordered_json::object();
    for_each_single_table([&](TableKind kind, auto member) {
        const auto& table = multiplex.*member;
        if (table) to[key_of(kind)] = write(*table);
    });
    for (const PmtOnPid& pmt : multiplex.pmts) {
        to[key_of(TableKind::kPmt)].push_back(write(pmt));
    }
    return to;
}

#!/usr/bin/env bash
# Checks who includes whom: prints every #include "…" that the table below does not allow. A
# file takes the first row that its path matches. A room may include itself; tests/, fuzz/,
# bench/ and examples/ may include everything, and nothing includes them.
set -euo pipefail
cd "$(dirname "$0")/.."

generated='thrift/(cm_|ci_module_|dvb_tables_|general_)'
table="
dvb/                   -
thrift/                dvb/
framework/host/        framework/|dvb/|thrift/
framework/             dvb/|$generated
mux/                   dvb/|framework/watchdog
tables/                mux/|dvb/|framework/clock
control/               tables/|mux/|dvb/|framework/[^/]*$|thrift/
app/                   control/|mux/|framework/[^/]*$|thrift/
tools/model/           dvb/|$generated|thrift/table_fields
tools/receive/         dvb/|tools/model/|$generated
tools/json/            dvb/|tools/model/|$generated|thrift/table_fields
tools/rules/           dvb/|tools/model/|tools/json/|$generated|thrift/table_
tools/files/           dvb/|tools/model/|tools/json/|tools/rules/
tools/service/         dvb/|tools/model/severity
tools/kestan-control/  dvb/|tools/model/|tools/receive/|tools/json/|tools/rules/|tools/files/|tools/service/|thrift/
tools/kestan-insert/   dvb/|tools/model/|tools/receive/|tools/json/|tools/service/
tools/kestan-monitor/measure/  dvb/|tools/model/|tools/receive/|tools/json/|tools/rules/|thrift/
tools/kestan-monitor/report/   dvb/|tools/json/|tools/kestan-monitor/measure/
tools/kestan-monitor/screen/   dvb/|tools/kestan-monitor/(measure|report)/
tools/kestan-monitor/  dvb/|tools/model/|tools/receive/|tools/json/|tools/rules/|tools/files/|tools/service/|thrift/
(tests|fuzz|bench|examples)/  .
"
grep -rE --include='*.h' --include='*.cpp' --exclude-dir='build*' '^#include "' -- * | awk -v table="$table" '
    BEGIN { rows = split(table, row, "\n") }
    {
        for (i = 2; i < rows && split(row[i], room, " ") && $0 !~ "^" room[1]; ++i) {}
        if (i == rows || $0 !~ "\"(" room[1] "|" room[2] ")") { print; status = 1 }
    }
    END { exit status }'

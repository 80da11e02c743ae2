/**
 * The services between Kestan and its control process.
 *
 * Both run over TCP with Thrift's framed transport and binary protocol. Kestan serves
 * cm_MuxControlSrv on port 9501 (instance 0) or 9511 (instance 1), one connection at a time;
 * the control process serves cm_MuxNotifySrv on port 9521 or 9531 of the same host.
 */
include "dvb_tables.thrift"

namespace * orvel.thrift.ci_module

/** What is scrambled in one service, and for which CA systems. */
struct ScrambledService {
    /** service_id, 0 to 0xFFFF. */
    1: required i32 service_id
    /** The PIDs to scramble, each 0 to 0x1FFF. */
    2: list<i32> pids
    /** CA_system_id of each CA system that grants access, 0 to 0xFFFF (ETSI TS 101 162). */
    3: list<i32> ca_system_ids
}

/** The scrambling of a whole multiplex. */
struct ScramblingConfig {
    /** The services that are scrambled; one that is not listed is in the clear. */
    1: required list<ScrambledService> services
}

/** An entitlement management message to be carried. */
struct EMMData {
    /** The PID that carries the message, 0 to 0x1FFF. */
    1: required i32 pid
    /** CA_system_id, 0 to 0xFFFF (ETSI TS 101 162). */
    2: required i32 ca_system_id
    /** The message: whole sections. */
    3: required binary data
}

/**
 * What Kestan does for its control process.
 *
 * The New methods replace a whole table and return the version_number that is played (0 to
 * 31). They return -1 if the table cannot be carried; then the previous table plays on and
 * Kestan logs the reason. Arguments of 16 bits travel as i16 and carry their bits: 0x8001 is
 * sent as -32767.
 */
service cm_MuxControlSrv {
    /** Withdraws every table; the TDT, which Kestan makes itself, plays on. */
    void ClearAllTables()

    /** Plays the PAT on PID 0x0000, whole every 200 ms. */
    i32 NewPAT(1: required dvb_tables.PAT pat)

    /** Plays the CAT on PID 0x0001, whole every 500 ms. */
    i32 NewCAT(1: required dvb_tables.CAT cat)

    /** Withdraws the CAT. */
    void ClearCAT()

    /** Plays the SDT actual on PID 0x0011, whole every 500 ms. */
    i32 NewSDTActual(1: required dvb_tables.SDT sdt)

    /**
     * Plays the service's PMT on the PID (0 to 0x1FFF), whole every 200 ms; several services
     * may share a PID. A service stays on its PID until StopPMT: a call with another PID
     * changes nothing and returns the version_number. A call with a PID above 0x1FFF returns
     * -1. The PIDs of the other tables (0x0000, 0x0001, 0x0011, 0x0014) are not refused, but
     * a PMT there breaks those tables.
     */
    i32 NewPMT(1: required dvb_tables.PMT pmt, 2: required i16 pid)

    /** Withdraws the service's PMT. The PID is only logged. */
    void StopPMT(1: required i16 service_id, 2: required i16 pid)

    /** Accepted, without effect on the stream. */
    void newScramblingConfig(1: ScramblingConfig config)

    /** Accepted, without effect on the stream. */
    void EMM(1: EMMData emm)
}

/** What the control process does for Kestan. */
service cm_MuxNotifySrv {
    /**
     * Kestan has started and holds no table: push all of them. The call can come shortly
     * before Kestan's control port is open.
     */
    void NotifyKestanStarted()
}

/**
 * The tables of a DVB multiplex as a control process hands them over.
 *
 * Unsigned values of 8 and 16 bits travel as i32, which holds each of them as a positive
 * number. If any value of a table is outside the range given here, the whole table is refused.
 *
 * version_number: 0 to 31 (ISO/IEC 13818-1, 2.4.4.5) is carried as it is; 32 to 255 is
 * accepted and carried as 0.
 *
 * current_next_indicator: true if the table applies now, false if it is the next one to apply
 * (ISO/IEC 13818-1, 2.4.4.5).
 */
namespace * orvel.thrift.dvb_tables

/** One descriptor (ISO/IEC 13818-1, 2.6; ETSI EN 300 468, clause 6). */
struct Descriptor {
    /** descriptor_tag, 0 to 255. */
    1: required i32 tag
    /** What follows descriptor_length: 0 to 255 bytes. */
    2: required binary data
}

/** One program of a PAT (ISO/IEC 13818-1, 2.4.4.3). */
struct PATProgram {
    /** program_number, 0 to 0xFFFF; 0 announces the network PID. */
    1: required i32 program_number
    /** program_map_PID or network_PID, 1 to 0x1FFF. */
    2: required i32 pid
}

/** Program Association Table (ISO/IEC 13818-1, 2.4.4.3), at most 25,600 programs. */
struct PAT {
    /** transport_stream_id, 0 to 0xFFFF. */
    1: required i32 transport_stream_id
    /** version_number, 0 to 255; see the head of this file. */
    2: required i32 version_number
    3: bool current_next_indicator = true
    /** The programs in the order of the table. */
    4: list<PATProgram> programs
}

/** Conditional Access Table (ISO/IEC 13818-1, 2.4.4.6), at most 256 sections. */
struct CAT {
    /** version_number, 0 to 255; see the head of this file. */
    1: required i32 version_number
    2: bool current_next_indicator = true
    /** The descriptors in the order of the table. */
    3: list<Descriptor> descriptors
}

/** One service of an SDT (ETSI EN 300 468, 5.2.3); it fits one section of 1,024 bytes. */
struct SDTService {
    /** service_id, 0 to 0xFFFF: the program_number of the service's PMT. */
    1: required i32 service_id
    /** EIT_schedule_flag: EIT schedule information is in this transport stream. */
    2: bool eit_schedule_flag = false
    /** EIT_present_following_flag: EIT present/following is in this transport stream. */
    3: bool eit_present_following_flag = false
    /** running_status, 0 to 7 (ETSI EN 300 468, table 6); 4 is running, 0 undefined. */
    4: i32 running_status = 0
    /** free_CA_mode: one or more component streams may be scrambled. */
    5: bool free_ca_mode = false
    /** The descriptors in the order of the table. */
    6: list<Descriptor> descriptors
}

/**
 * Service Description Table of the actual transport stream (ETSI EN 300 468, 5.2.3), at most
 * 256 sections.
 */
struct SDT {
    /** transport_stream_id, 0 to 0xFFFF. */
    1: required i32 transport_stream_id
    /** original_network_id, 0 to 0xFFFF (ETSI TS 101 162). */
    2: required i32 original_network_id
    /** version_number, 0 to 255; see the head of this file. */
    3: required i32 version_number
    4: bool current_next_indicator = true
    /** The services in the order of the table. */
    5: list<SDTService> services
}

/** One elementary stream of a PMT (ISO/IEC 13818-1, 2.4.4.8). */
struct PMTStream {
    /** stream_type, 0 to 255 (ISO/IEC 13818-1, table 2-34). */
    1: required i32 stream_type
    /** elementary_PID, 0 to 0x1FFF. */
    2: required i32 elementary_pid
    /** The descriptors in the order of the table. */
    3: list<Descriptor> descriptors
}

/** Program Map Table (ISO/IEC 13818-1, 2.4.4.8); it fits one section of 1,024 bytes. */
struct PMT {
    /** program_number, 0 to 0xFFFF: the service_id. One PMT is kept per program_number. */
    1: required i32 program_number
    /** version_number, 0 to 255; see the head of this file. */
    2: required i32 version_number
    3: bool current_next_indicator = true
    /** PCR_PID, 0 to 0x1FFF; 0x1FFF if the program has no PCR. */
    4: required i32 pcr_pid
    /** The program's descriptors in the order of the table. */
    5: list<Descriptor> descriptors
    /** The program's elementary streams in the order of the table. */
    6: list<PMTStream> streams
}

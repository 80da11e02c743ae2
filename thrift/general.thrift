/** Constants that the device's tasks share. */
namespace * orvel.thrift.general

/**
 * First UDP port of the FPGA's PSI/SI inputs: instance n of Kestan sends to this port plus n
 * unless its command line says otherwise.
 */
const i16 PSI_SI_OUTPUT_BASE_PORT = 5500

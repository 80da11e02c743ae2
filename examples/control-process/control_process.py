#!/usr/bin/python3
"""A control process: keeps one multiplex on air, also when Kestan restarts.

    thrift -r --gen py /usr/share/kestan/thrift/ci_module.thrift     # makes gen-py/
    PYTHONPATH=gen-py /usr/bin/python3 control_process.py [INSTANCE]

Debian's packages thrift-compiler, python3-thrift and python3-six are needed.
"""
import sys
import threading
import time

from orvel.thrift.ci_module import cm_MuxControlSrv, cm_MuxNotifySrv
from orvel.thrift.ci_module.ttypes import ScramblingConfig
from orvel.thrift.dvb_tables.ttypes import (
    PAT, PMT, SDT, Descriptor, PATProgram, PMTStream, SDTService)
from thrift.protocol.TBinaryProtocol import TBinaryProtocol, TBinaryProtocolFactory
from thrift.server.TServer import TThreadedServer
from thrift.Thrift import TException
from thrift.transport.TSocket import TServerSocket, TSocket
from thrift.transport.TTransport import TFramedTransport, TFramedTransportFactory

INSTANCE = int(sys.argv[1]) if len(sys.argv) > 1 else 0
CONTROL_PORT = 9501 + 10 * INSTANCE       # Kestan listens here
NOTIFICATION_PORT = 9521 + 10 * INSTANCE  # Kestan calls here, from the same host

# Services that earlier versions of this program pushed, or pushed on another PID.
NO_LONGER_WANTED = [(102, 0x110)]


def push_tables(kestan):
    """Replaces the tables one by one. A changed table needs another version_number."""
    name = b"\x01\x0aLighthouse\x07Harbour"  # service_descriptor: EN 300 468, 6.2.33
    pat = PAT(transport_stream_id=1, version_number=1,
              programs=[PATProgram(program_number=101, pid=0x100)])
    sdt = SDT(transport_stream_id=1, original_network_id=0xFF01, version_number=1, services=[
        SDTService(service_id=101, running_status=4, descriptors=[Descriptor(0x48, name)])])
    pmt = PMT(program_number=101, version_number=1, pcr_pid=0x101, streams=[
        PMTStream(stream_type=0x1B, elementary_pid=0x101),
        PMTStream(stream_type=0x04, elementary_pid=0x102,
                  descriptors=[Descriptor(0x0A, b"eng\0")])])  # ISO_639_language
    kestan.newScramblingConfig(ScramblingConfig([]))  # no effect; waits for the turn
    kestan.ClearCAT()  # this multiplex has none
    for service_id, old_pid in NO_LONGER_WANTED:
        kestan.StopPMT(service_id, old_pid)
    if -1 in (kestan.NewPAT(pat), kestan.NewSDTActual(sdt), kestan.NewPMT(pmt, 0x100)):
        print("Kestan refused a table: its log says why", file=sys.stderr)


def keep_on_air():
    """Connects, pushes and closes: Kestan serves one connection at a time."""
    while True:
        kestan_started.wait()
        kestan_started.clear()
        socket = TSocket("127.0.0.1", CONTROL_PORT)
        socket.setTimeout(3000)  # ms, of each send and receive
        transport = TFramedTransport(socket)
        try:
            transport.open()
            push_tables(cm_MuxControlSrv.Client(TBinaryProtocol(transport)))
        except TException as error:
            print(f"push failed: {error}", file=sys.stderr)
            time.sleep(1)  # Kestan can open its control port after the notification
            kestan_started.set()
        finally:
            transport.close()


class NotificationHandler:
    def NotifyKestanStarted(self):
        kestan_started.set()  # and answers at once: Kestan waits for it before it plays


kestan_started = threading.Event()
kestan_started.set()  # it can run already
threading.Thread(target=keep_on_air, daemon=True).start()
TThreadedServer(
    cm_MuxNotifySrv.Processor(NotificationHandler()),
    TServerSocket("127.0.0.1", NOTIFICATION_PORT),
    TFramedTransportFactory(), TBinaryProtocolFactory(), daemon=True).serve()

#!/usr/bin/python3
"""pymodbus_client.py PORT ROUNDS REGISTER VALUE TARGET: a client independent
of libmodbus. Each round reads REGISTER (it must hold VALUE) and writes the
round's number to TARGET; exits 1 with the reason on one line at the first fault."""
import sys

from pymodbus.client import ModbusTcpClient

port, rounds, register, value, target = map(int, sys.argv[1:6])
client = ModbusTcpClient("127.0.0.1", port=port, timeout=10)
if not client.connect():
    sys.exit("pymodbus: cannot connect to the proxy")
for round_ in range(rounds):
    read = client.read_holding_registers(register, 1, slave=1)
    if read.isError() or read.registers != [value]:
        sys.exit(f"pymodbus: round {round_}: read {read}, expected {value}")
    written = client.write_register(target, round_, slave=1)
    if written.isError():
        sys.exit(f"pymodbus: round {round_}: write answered {written}")
client.close()

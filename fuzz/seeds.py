#!/usr/bin/env python3
"""Writes the seed inputs of the driver's fuzzers into fuzz/corpus/.

Each seed is a run the fuzzer reads byte by byte (fuzz/fuzz_input.h); this
script spells those bytes out by what they mean, so that the seeds reach
the edges a host can pass (INT_MIN, INT_MAX, the ends of an image area) in
every field and argument from the first execution on. Run it again after
changing how a fuzzer reads its input:  fuzz/seeds.py
"""
import os
import struct

INT_MIN, INT_MAX = -2**31, 2**31 - 1
EDGES = [INT_MIN, INT_MIN + 1, -65536, -65535, -2, -1, 0, 1, 65533, 65534, 65535, 65536, INT_MAX - 1, INT_MAX]
AREA_I, AREA_Q, AREA_M, AREA_V, AREA_AI, AREA_AQ, AREA_AM, AREA_VW = range(8)


class Seed:
    """The bytes FuzzInput turns back into the values given."""

    def __init__(self):
        self.data = bytearray()

    def byte(self, value):
        self.data.append(value & 0xFF)
        return self

    def flag(self, on):
        return self.byte(1 if on else 0)

    def any_int(self, value):
        if value in EDGES:
            return self.byte(EDGES.index(value))
        if -8 <= value < 56:
            return self.byte(200).byte(value + 8)
        self.byte(64)
        self.data += struct.pack(">i", value)
        return self

    def range(self, start, count):
        """A range the harness takes as it is (an edge range: no start moved)."""
        if 0 <= start < 64 and -2 <= count < 22:
            return self.byte(0).byte(start).byte(count + 2)
        covered = min(count, 65535 - start) if 0 <= start < 65535 else 0
        assert covered <= 1100, "the harness would move this start"
        return self.byte(180).any_int(start).any_int(count)

    def text(self, text):
        raw = text.encode("latin-1")
        assert len(raw) < 12
        self.data.append(len(raw))
        self.data += raw
        return self

    def address_text(self, area, address):
        """The driver's own notation of the address, as the harness writes it."""
        return self.flag(False)


def interface_seeds():
    """Spelled as interface_fuzzer.cpp reads them: one helper per operation."""

    def settings(s, multi=0, remote=0, block=16):
        flags = (0x08 if multi else 0) | (0x10 if remote else 0)
        s.byte(flags).byte(block).byte(1)  # block length, retry limit
        if multi:
            s.any_int(multi)
        if remote:
            s.any_int(remote)
        return s

    def any_area(s, area):
        return s.flag(True).byte(area) if 0 <= area < 8 else s.flag(False).any_int(area)

    def queue(s, area, start, count, write, flag=0, station=1, any_station=False, wild=None):
        """Op 1: a write or one-shot read; `wild` gives sourceType, sourceId,
        remoteFlag, returnCode, param1 and param2 any values."""
        s.byte(1).flag(write)
        s.byte((0x02 if any_station else 0) | (0x24 if wild else 0))
        any_area(s, area).range(start, count).address_text(area, start)
        s.any_int(station) if any_station else s.byte(station)
        if wild:
            for value in wild:
                s.any_int(value)
            s.text("")
        else:
            s.byte(1)  # sourceId
        return s.flag(True).byte(flag)

    def frames(s, n=3, good=True):
        """Op 3: n + 1 exchanges, with good replies or empty ones."""
        s.byte(3).byte(n)
        for _ in range(n + 1):
            s.flag(good)
            if not good:
                s.byte(0)
            s.flag(True)
        return s

    def rebuild(s, variables):
        """Op 0: (area, station, start, count) for each variable."""
        s.byte(0).byte(len(variables))
        for area, station, start, count in variables:
            s.byte(area).byte(station).range(start, count).address_text(area, start)
        return s

    def image(s, get, area, start, count, station, data=b"\x01\x02", source=(1, 1)):
        """Op 4: GetRegisterData or SetRegisterData."""
        s.byte(4)
        any_area(s, area).range(start, count).address_text(area, start)
        s.byte(len(data)).data.extend(data)
        s.flag(get).text("")
        s.any_int(station)
        if not get:
            s.any_int(source[0]).any_int(source[1])
        return s

    seeds = {}
    s = settings(Seed())
    queue(s, AREA_Q, INT_MAX, 1, True, flag=1)
    queue(s, AREA_I, INT_MIN, 1, False, flag=1)
    queue(s, AREA_AM, INT_MAX - 1, 2, False, flag=1)
    seeds["addresses_at_int_edges"] = frames(s).data

    s = settings(Seed(), multi=1)
    queue(s, AREA_VW, 0, 3, True, station=INT_MIN, any_station=True)
    queue(s, AREA_V, 65534, INT_MAX, False, station=INT_MAX, any_station=True)
    queue(s, AREA_AQ, INT_MIN, INT_MIN, True, flag=1)
    seeds["counts_and_stations_at_edges"] = frames(s, good=False).data

    s = Seed().byte(0xFF)
    for value in (INT_MAX, INT_MIN, INT_MAX, INT_MIN, 0, INT_MIN, 2):  # block, station, retries, multi, remote, link, writeMode
        s.any_int(value)
    for value in (INT_MAX, INT_MAX, INT_MIN, INT_MAX):  # retryCount, framesPerRequest, framesAnswered, scanDone
        s.any_int(value)
    rebuild(s, [(AREA_VW, 255, 65530, INT_MAX), (AREA_M, 0, INT_MAX, 5)])
    image(s, False, AREA_VW, 65534, INT_MAX, INT_MAX, source=(INT_MIN, INT_MAX))
    image(s, True, AREA_AQ, -1, INT_MAX, INT_MIN)
    image(s, False, INT_MIN, 0, 1, 0)
    seeds["settings_and_image_at_edges"] = frames(s).data

    s = settings(Seed(), remote=1)
    queue(s, INT_MAX, INT_MIN, 65535, True, flag=1, station=INT_MAX, any_station=True,
          wild=(INT_MIN, INT_MAX, INT_MIN, INT_MAX, INT_MIN, INT_MAX))
    queue(s, INT_MIN, INT_MAX, 65535, False, flag=1)
    s.byte(5).any_int(INT_MIN).any_int(INT_MAX)  # op 5: every station on
    s.byte(5).any_int(INT_MAX).any_int(0)        # station INT_MAX off
    seeds["remote_frames_at_edges"] = frames(s).data

    s = settings(Seed())
    s.byte(6).flag(False).any_int(INT_MAX).text("2147483647")  # op 6: address conversion
    s.byte(6).flag(True).byte(AREA_V).text("268435455.9")
    s.byte(6).flag(True).byte(AREA_V).text("268435456.3")  # the byte.bit sum wraps
    s.byte(6).flag(True).byte(AREA_AM).text("-2147483648")
    seeds["conversions_at_edges"] = s.data
    return seeds


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    for fuzzer, seeds in (("interface_fuzzer", interface_seeds()),):
        folder = os.path.join(here, "corpus", fuzzer)
        os.makedirs(folder, exist_ok=True)
        for name, data in seeds.items():
            with open(os.path.join(folder, name), "wb") as out:
                out.write(bytes(data))
        print(f"{fuzzer}: {len(seeds)} seeds")


if __name__ == "__main__":
    main()

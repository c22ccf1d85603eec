"""An OP-1b file taken apart by its bytes, without the program."""

import struct
from dataclasses import dataclass, field

LABEL = bytes.fromhex("060E2B34")
PARTITION = bytes.fromhex("060E2B34020501010D010201 01".replace(" ", ""))
RANDOM_INDEX = bytes.fromhex("060E2B34020501010D01020101110100")
INDEX_SEGMENT = bytes.fromhex("060E2B34025301010D01020101100100")
FILL = bytes.fromhex("060E2B34010101020301021001000000")
PICTURE = bytes.fromhex("060E2B34010201010D01030115010501")
ANC = bytes.fromhex("060E2B34010201010D01030117010201")
SOUND = bytes.fromhex("060E2B34010201010D01030116010C01")
METADATA_SET = bytes.fromhex("060E2B34025301010D0101010101")

MATERIAL_PACKAGE, FILE_PACKAGE, TIMECODE, PICTURE_DESCRIPTOR, MULTIPLE_DESCRIPTOR, SUB_DESCRIPTOR, SOUND_DESCRIPTOR = (
    0x36, 0x37, 0x14, 0x28, 0x44, 0x6E, 0x47)


@dataclass
class Packet:
    offset: int
    key: bytes
    value: bytes
    value_offset: int


@dataclass
class Group:
    pictures: list = field(default_factory=list)  # bytes
    anc: int = 0
    sound: dict = field(default_factory=dict)  # BodySID -> bytes
    entries: list = field(default_factory=list)  # temporal offset, key-frame offset, flags, stream offset


class Op1bFile:
    def __init__(self, data):
        self.data = data
        self.packets = list(walk(data))
        self.partitions = [each for each in self.packets if each.key.startswith(PARTITION) and each.key[13] in (2, 3, 4)]
        self.groups = []
        body = None
        for packet in self.packets:
            if packet in self.partitions:
                body = struct.unpack(">I", packet.value[60:64])[0]
                index = struct.unpack(">I", packet.value[48:52])[0]
                footer = packet.key[13] == 4
                if body == 1:
                    self.groups.append(Group())
            elif packet.key == PICTURE:
                self.groups[-1].pictures.append(packet.value)
            elif packet.key == ANC:
                self.groups[-1].anc += 1
            elif packet.key == SOUND:
                self.groups[-1].sound[body] = packet.value
            elif packet.key == INDEX_SEGMENT and index == 101 and not footer:
                self.groups[-1].entries = entries(packet.value)

    @property
    def pictures(self):
        return [picture for group in self.groups for picture in group.pictures]

    @property
    def entries(self):
        return [entry for group in self.groups for entry in group.entries]

    def sound(self, channel):
        return b"".join(group.sound[3 + channel] for group in self.groups)

    def sets(self, kind):
        """Sets of the header, each tag -> bytes."""
        return [items(each.value) for each in self.packets
                if each.offset < 32768 and each.key[:14] == METADATA_SET and each.key[14] == kind]


def walk(data):
    at = 0
    while at < len(data):
        key = data[at:at + 16]
        assert key.startswith(LABEL), f"no key at {at}"
        length, size = data[at + 16], 17
        if length & 0x80:
            size += length & 0x7F
            length = int.from_bytes(data[at + 17:at + size], "big")
        assert at + size + length <= len(data), f"the packet at {at} ends behind the file"
        yield Packet(at, key, data[at + size:at + size + length], at + size)
        at += size + length


def items(value):
    result, at = {}, 0
    while at < len(value):
        tag, size = struct.unpack(">HH", value[at:at + 4])
        result[tag] = value[at + 4:at + 4 + size]
        at += 4 + size
    return result


def entries(segment):
    array = items(segment)[0x3F0A]
    count, size = struct.unpack(">II", array[:8])
    return [struct.unpack(">bbBQ", array[8 + i * size:8 + i * size + 11]) for i in range(count)]

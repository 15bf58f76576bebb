#!/usr/bin/env python3
"""Writes the simulator's scenario files (sim/scenarios/*.json).

The JSON files are committed; run this only to change them:
    python3 sim/tools/make_scenarios.py
"""
import json
import os

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scenarios")

GB = 1953125  # 512-byte blocks per 10^9 bytes
SAS_4TB = 7814037168
SAS_2TB = 3907029168
SATA_2TB = 3907029168
SATA_1TB = 1953525168

CONTROLLER = {
    "vendor": "Tovra Technology Corp.",
    "serial": "TV12A0005531",
    "firmware": "V1.56 2023-04-12",
    "boot": "V1.56 2023-04-12",
    "mb": "B402-03",
    "model": "TV-1883i",
    "modelExt": "-16",
    "localIp": "192.168.10.50",
    "currentIp": "192.168.10.50",
    "timeTick": 123456,
    "cpuSpeed": 1200,
    "iCache": 32,
    "dCache": 32,
    "sCache": 1024,
    "memorySize": 2048,
    "memorySpeed": 1333,
    "mac": "00:1b:4d:2a:10:32",
    "dhcp": 0,
    "beeper": 1,
    "channelUsage": 0,
    "maxAtaMode": 6,
    "sdramEcc": 1,
    "rebuildPriority": 2,
    "comA": [0x80, 0x25, 0x00, 0x08, 0x01],
    "comB": [0x80, 0x25, 0x00, 0x08, 0x01],
    "ideChannels": 0,
    "scsiHostChannels": 1,
    "ideHostChannels": 0,
    "maxVolumeSet": 32,
    "maxRaidSet": 8,
    "etherPort": 1,
    "raid6Engine": 1,
    "mib1": 1,
    "mib2": 2,
    "enterpriseNum": 18928,
    "hostType": 1,
    "targetType": 0,
    "inBandEnable": 1,
    "inBandChannel": 0,
    "inBandId": 16,
    "r5060Supported": 1,
    "ntpSupported": 1,
    "flag": 0x00000003,
    "sasAddress": "0x5001b4d50a2c1000",
}
DRIVER = {"version": "v1.40.00.00-20230131", "name": "tovdrv"}
PCI = {"width": "x8", "speed": "5.0 GT/s"}
BATTERY = {"present": True, "charge": 100, "status": 0, "temperature": 29, "millivolts": 4110}

SATA_SMART_IDS = [1, 3, 5, 7, 10, 11, 194, 170, 177]


def sas_disk(slot, serial, blocks=SAS_4TB, model="ST4000NM0023", firmware="0004", **extra):
    d = {
        "slot": slot, "type": "SAS", "model": model, "serial": serial, "firmware": firmware,
        "blocks": blocks, "rpm": 7200, "temperature": 34, "smartSense": 0,
        "attributes": [0, 12, 0, 12, 15 * 10**12 + slot, 0, 0, 0, 3, 3, 9 * 10**12 + slot, 0,
                       0, 0, 0, 0, 2 * 10**12, 0, 1, 0],
        "mediaErrors": 0, "timeouts": 0,
    }
    d.update(extra)
    return d


def sata_disk(slot, serial, blocks=SATA_2TB, model="WDC WD2003FYYS-02W0B1", firmware="01.01D02", **extra):
    d = {
        "slot": slot, "type": "SATA", "model": model, "serial": serial, "firmware": firmware,
        "blocks": blocks,
        "smart": [[i, 200 if i != 194 else 115, 51 if i == 1 else 21 if i in (3, 10) else 0]
                  for i in SATA_SMART_IDS],
        "mediaErrors": 0, "timeouts": 0,
    }
    d.update(extra)
    return d


def sensors(volts, fans, powers, temps):
    out = [{"kind": "voltage", "name": n, "value": v} for n, v in volts]
    out += [{"kind": "fan", "name": n, "value": v} for n, v in fans]
    out += [{"kind": "power", "name": n, "value": v} for n, v in powers]
    out += [{"kind": "temperature", "name": n, "value": v} for n, v in temps]
    return out


def volume(number, raid_set, name, gb, level, lun, **extra):
    v = {"number": number, "raidSet": raid_set, "name": name, "serial": "%08X%08X" % (0x7D0A0000 + number, number + 1),
         "blocks": gb * GB, "level": level, "stripeCode": 4,
         "scsi": {"channel": 0, "id": lun // 8, "lun": lun % 8, "tagged": 1, "cacheMode": 1, "speed": 0}}
    v.update(extra)
    return v


def settings():
    return {"values": {"NetMask": [255, 255, 255, 0], "Gateway": [192, 168, 10, 1], "HttpPort": [80, 0],
                       "TelnetPort": [23, 0], "SMTPPort": [25, 0], "NCQ": [1], "DiskCache": [1]},
            "mode": 0, "beeperMuted": False}


def default():
    enc0 = {
        "index": 0, "vendor": "Tovra", "product": "TV-1883 Backplan", "revision": "1.56", "type": 1, "slots": 8,
        "sensors": sensors([("12V", 12.08), ("5V", 5.02), ("3.3V", 3.31)], [("CPU Fan", 3120)], [],
                           [("Controller", 48), ("Backplane", 35)]),
        "disks": [
            sas_disk(0, "Z1Z0A1B2"), sas_disk(1, "Z1Z0A1B3"), sas_disk(2, "Z1Z0A1B4"), sas_disk(3, "Z1Z0A1B5"),
            sata_disk(4, "WD-WMAY04123456", role="hotspare"),
            sata_disk(5, "WD-WCC1S0654321", blocks=SATA_1TB, model="WDC WD1003FBYX-01Y7B1", role="passthrough",
                      scsi={"channel": 0, "id": 1, "lun": 0, "tagged": 1, "cacheMode": 1, "speed": 0}),
            sas_disk(6, "Z1Z0A1C9", role="failed", mediaErrors=112, timeouts=9),
        ],
    }
    enc1 = {
        "index": 1, "vendor": "Tovra", "product": "TV-8012 Expander", "revision": "0210", "type": 2, "slots": 12,
        "sensors": sensors([("12V", 12.11), ("5V", 5.04)], [("Fan 1", 5400), ("Fan 2", 5350)],
                           [("PSU 1", 1), ("PSU 2", 1)], [("Enclosure", 31)]),
        "disks": [
            sata_disk(0, "WD-WMAY04200001"), sata_disk(1, "WD-WMAY04200002"), sata_disk(2, "WD-WMAY04200003"),
            sas_disk(3, "Z1Z0B7Q1", blocks=SAS_2TB, model="ST2000NM0023", firmware="0006"),
            sata_disk(4, "WD-WMAY04200005"),
        ],
    }
    return {
        # Two SAS ports at 6 Gbit/s (link rate code 0xA).
        "controller": dict(CONTROLLER, scsiHostChannels=2, channelUsage=0xA), "driver": DRIVER, "pci": PCI,
        "battery": BATTERY, "enclosures": [enc0, enc1],
        "raidSets": [
            {"number": 0, "name": "Raid Set # 000", "members": [[0, 0], [0, 1], [0, 2], [0, 3]]},
            {"number": 1, "name": "Raid Set # 001", "members": [[1, 0], [1, 1], [1, 2]]},
        ],
        "volumes": [
            volume(0, 0, "Volume Set # 000", 2000, 3, 0),
            volume(1, 0, "Volume Set # 001", 1000, 4, 1),
            volume(2, 1, "Volume Set # 002", 1500, 3, 2),
        ],
        "events": [
            {"time": 1700003600, "severity": 2, "device": "Enc1 Slot7", "message": "Device Failed"},
            {"time": 1700000400, "severity": 0, "device": "Volume Set # 002", "message": "Complete Init"},
            {"time": 1700000000, "severity": 0, "device": "Raid Set # 001", "message": "Create RaidSet"},
        ],
        "settings": settings(),
        "password": "0000",
        "nextSerial": 4,
    }


def full():
    enclosures = []
    serial = 0
    for e in range(12):
        slots = 8 if e == 0 else 28
        disks = []
        for s in range(slots):
            serial += 1
            if (e + s) % 2 == 0:
                disks.append(sas_disk(s, "ZF%06d" % serial, blocks=SAS_4TB))
            else:
                disks.append(sata_disk(s, "WD-WMAZ%08d" % serial, blocks=SAS_4TB, model="WDC WD4003FZEX-00Z4SA0"))
        enclosures.append({
            "index": e, "vendor": "Tovra",
            "product": "TV-1883 Backplan" if e == 0 else "TV-8028 Expander",
            "revision": "1.56" if e == 0 else "0300", "type": 1 if e == 0 else 2, "slots": slots,
            "sensors": sensors([("12V", 12.0 + e / 100), ("5V", 5.0)], [("Fan 1", 5000 + e)], [("PSU 1", 1)],
                               [("Enclosure", 30 + e)]),
            "disks": disks,
        })
    # Set 0: the 8 disks of enclosure 0; sets 1 to 7: 24 disks of enclosures 1 to 7.
    raid_sets = [{"number": 0, "name": "Raid Set # 000", "members": [[0, s] for s in range(8)]}]
    for r in range(1, 8):
        raid_sets.append({"number": r, "name": "Raid Set # %03d" % r, "members": [[r, s] for s in range(24)]})
    levels = [0, 1, 3, 4]
    volumes = []
    for n in range(32):
        volumes.append(volume(n, n // 4, "Volume Set # %03d" % n, 500, levels[n % 4], n % 128))
    # Hot spares and pass-through disks among the free disks of enclosures 8 to 11.
    for e in range(8, 12):
        disks = enclosures[e]["disks"]
        disks[0]["role"] = "hotspare"
        disks[1]["role"] = "passthrough"
        disks[1]["scsi"] = {"channel": 0, "id": 4 + (e - 8), "lun": 0, "tagged": 1, "cacheMode": 1, "speed": 0}
    events = [{"time": 1700000000 + i * 60, "severity": i % 3, "device": "Enc%d Slot%d" % (i % 12 + 1, i % 8 + 1),
               "message": "Event %d" % i} for i in range(64)]
    events.reverse()
    return {
        # Four SAS ports at 12 Gbit/s (link rate code 0xB).
        "controller": dict(CONTROLLER, serial="TV12A0009999", scsiHostChannels=4, channelUsage=0xB), "driver": DRIVER,
        "pci": PCI, "battery": BATTERY,
        "enclosures": enclosures, "raidSets": raid_sets, "volumes": volumes, "events": events,
        "settings": settings(), "password": "0000", "nextSerial": 33,
    }


def edge():
    enc0 = {
        "index": 0, "vendor": "Tovra   ", "product": "Edge Backplane  ", "revision": "E1", "slots": 8,
        "sensors": sensors([("12V", 11.2)], [], [], [("Controller", 71)]),
        "disks": [
            sas_disk(0, "EDGE0000", address="0x5001000000000000"),          # top of the SAS band
            sas_disk(1, "EDGE0001", address="0x5000000000000001", role="failed"),
            sas_disk(2, "EDGE0002", address="0x5001000000000001"),          # reads as SATA
            sas_disk(3, "EDGE0003", address="0x5000000000000000"),          # reads as SATA
            sata_disk(4, "                    ", address=0),                # all-blank serial
            sata_disk(5, "EDGE0005  ", blocks=0),                           # capacity 0: an empty slot
            sata_disk(6, "EDGE0006", state=0x30),                           # failed and hot spare bits
            sata_disk(7, "EDGE0007", state=0x40),                           # unavailable (0x80 clear)
        ],
    }
    same = {"vendor": "Tovra", "product": "TV-8028 Expander", "revision": "0300", "type": 2, "slots": 4,
            "sensors": sensors([("12V", 12.0)], [], [], [("Enclosure", 33)])}
    enc1 = dict(same, index=1, disks=[sata_disk(0, "EDGE1000"), sata_disk(1, "EDGE1001"), sata_disk(2, "EDGE1002")])
    enc2 = dict(same, index=2, disks=[sas_disk(0, "EDGE2000"), sas_disk(1, "EDGE2001")])
    enc3 = {"index": 3, "vendor": "Tovra", "product": "Sensor Only", "revision": "0001", "slots": 0,
            "sensors": sensors([("12V", 12.2), ("5V", 4.9)], [("Fan 1", 0)], [("PSU 1", 0)], [("Ambient", 25.5)])}
    return {
        "controller": dict(CONTROLLER, vendor="Tovra Technology Corp." + " " * 18, model="TV-1883", modelExt="X",
                           serial="EDGE00000001    "),
        "driver": DRIVER, "pci": PCI, "battery": {"present": False},
        "enclosures": [enc0, enc1, enc2, enc3],
        "raidSets": [
            # A failed member with the rebuilding state code.
            {"number": 0, "name": "Edge Set    ", "members": [[0, 0], [0, 1], [1, 0]], "rawState": 6},
            # Fail mask set with an unknown state code; an all-blank name.
            {"number": 3, "name": "                ", "members": [[2, 0], [2, 1]], "rawState": 9,
             "rawFailMask": 1},
        ],
        "volumes": [
            volume(0, 0, "Locked Vol", 100, 3, 0, encrypted=True, keyUnlocked=False, rawVolumeStatus=0x40,
                   rawFailMask=0),
            volume(5, 3, "Vol5      ", 100, 7, 5, encrypted=True, keyUnlocked=True, rawStripeWord=128,
                   serial="                "),
        ],
        "events": [],
        "settings": settings(),
        "password": "",
    }


def bare():
    enc0 = {"index": 0, "vendor": "Tovra", "product": "TV-1883 Backplan", "revision": "1.56", "slots": 8,
            "sensors": [], "disks": [sas_disk(0, "BARE0000"), sata_disk(1, "BARE0001"), sas_disk(2, "BARE0002"),
                                     sata_disk(3, "BARE0003")]}
    return {"controller": dict(CONTROLLER, serial="TV12A0000001"), "driver": DRIVER, "pci": PCI,
            "enclosures": [enc0], "raidSets": [], "volumes": [], "events": [], "password": "0000"}


def pairs():
    # Key values on which the association rules disagree: enclosure names that
    # contain each other or differ only in case, serial numbers that contain
    # each other, package tags that contain the controller's serial "25", and
    # a RAID set without volumes.
    def enclosure(index, product, disks):
        return {"index": index, "vendor": "Tovra", "product": product, "revision": "0210", "type": 2,
                "slots": len(disks), "sensors": [], "disks": disks}
    return {
        "controller": dict(CONTROLLER, serial="25"), "driver": DRIVER, "pci": PCI, "battery": BATTERY,
        "enclosures": [
            enclosure(0, "Expander", [sas_disk(0, "PAIR1"), sas_disk(1, "PAIR12")]),
            enclosure(1, "TV-8012 Expander", [sas_disk(0, "PAIR2"), sas_disk(1, "PAIR3")]),
            enclosure(2, "tv-8012 expander", [sas_disk(0, "PAIR4")]),
        ],
        "raidSets": [
            {"number": 0, "name": "Raid Set # 000", "members": [[0, 0], [1, 0]]},
            {"number": 1, "name": "Raid Set # 001", "members": [[1, 1]]},
            {"number": 2, "name": "Raid Set # 002", "members": [[2, 0]]},
        ],
        "volumes": [
            volume(0, 0, "Volume Set # 000", 100, 3, 0),
            volume(1, 0, "Volume Set # 001", 100, 0, 1),
            volume(2, 1, "Volume Set # 002", 100, 0, 2),
        ],
        "events": [], "settings": settings(), "password": "",
    }


def write(name, scenario):
    with open(os.path.join(OUT, name + ".json"), "w") as f:
        if name == "full":
            json.dump(scenario, f, separators=(",", ":"))
        else:
            json.dump(scenario, f, indent=1)
        f.write("\n")


if __name__ == "__main__":
    write("default", default())
    write("full", full())
    write("edge", edge())
    write("bare", bare())
    write("pairs", pairs())

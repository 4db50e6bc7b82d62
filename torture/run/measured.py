"""How long one piece of the long form takes, in seconds, on two processors with nothing else to do."""

SECONDS = {
    "kill.random": 15, "kill.random.disk": 20, "kill.calls": 13, "kill.calls.disk": 7, "kill.again": 42,
    "kill.mending": 2.5, "kill.stop": 23, "kill.stop.disk": 9,
    "ends.handlers": 13, "ends.cancel": 11, "ends.unwinding": 2.3, "ends.fork": 5.3, "ends.exec": 10,
    "ends.exit": 12, "ends.unload": 4.6,
    "model.alone": 28, "model.together": 20,
    "objects.crowd": 29, "objects.killed_creator": 21, "objects.planted": 24, "objects.attacked": 4.6,
    "objects.permissions": 5.7, "objects.protected": 1.3, "objects.pid_namespaces": 18,
    "load.readback": 8, "load.linear": 41, "load.two_writers": 10, "load.watched": 4, "load.soak": 1800,
    "scale.opens": 3.4, "scale.handles": 0.1, "scale.keys": 1.8, "scale.siblings": 0.2,
    "scale.values": 0.3, "scale.text": 1, "scale.nesting": 0.4,
    "fault.files": 5.9, "fault.pairs": 17, "fault.sequences": 4.1, "fault.deaths": 14,
    "fault.synced_files": 6.1, "fault.synced_pairs": 20, "fault.synced_deaths": 4.7,
    "fault.calls": 19, "fault.calls.disk": 33, "fault.synced_calls": 14, "fault.traced_calls": 14,
    "memory.operations": 1.8, "memory.first": 1.6, "memory.threads": 29, "memory.c": 4, "memory.store": 6,
    "memory.again": 33, "memory.sequences": 1.9,
    "power.ext4": 4.6, "power.ext4_noauto_da_alloc": 3.8, "power.xfs": 3.3, "power.btrfs": 4.5,
    # What the driver's own test looks at.
    "self.holds": 2, "self.fails": 1, "self.cannot": 1,
}

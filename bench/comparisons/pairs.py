"""Rows that set one side beside another, and what they say about who is ahead."""
import dataclasses

from . import bench as b

LEVEL = 0.02  # a difference below this is none


@dataclasses.dataclass
class Pair:
    """A row: our runs and the peer's of one job."""
    case: str
    ours: list
    peer: list
    items: int  # pictures
    why: str = ""  # why we are behind, where we are

    @property
    def speed(self):
        return b.median_ratio(self.peer, self.ours, "wall_s")

    @property
    def cpu(self):
        return b.median_ratio(self.ours, self.peer, "cpu_s")

    def cells(self):
        return [self.case, *(f"{self.items / b.median(runs, 'wall_s'):.1f}" for runs in (self.ours, self.peer)),
                f"{self.speed:.3f}", *(f"{b.median(runs, 'cpu_s'):.2f}" for runs in (self.ours, self.peer)),
                f"{self.cpu:.3f}", verdict(self.speed)]


def verdict(speed):
    if abs(speed - 1) <= LEVEL:
        return "level"
    return "ahead" if speed > 1 else "**behind**"


def show(pairs):
    """The table, and below it the reasons for what is behind."""
    head = ["case", "ours, pictures/s", "peer, pictures/s", "speed, ours/peer", "ours, CPU s",
            "peer, CPU s", "CPU time, ours/peer", "speed is"]
    text = b.table(head, [pair.cells() for pair in pairs])
    for pair in pairs:
        if pair.speed < 1 - LEVEL:
            text += f"\nBehind, {pair.case}: {pair.why or 'the reason is not known yet.'}\n"
    return text

"""Rows that set one side beside another, and what they say about who is ahead."""
import dataclasses

from . import bench as b
from . import svg

LEVEL = 0.02  # a difference below this is none


@dataclasses.dataclass
class Pair:
    """A row: our runs and the peer's of one job."""
    case: str
    ours: list
    peer: list
    pictures: int
    why: str = ""  # why we are behind, where we are

    @property
    def speed(self):
        return b.median_ratio(self.peer, self.ours, "wall_s")

    @property
    def cpu(self):
        return b.median_ratio(self.ours, self.peer, "cpu_s")

    @property
    def verdict(self):
        """Rounds that disagree, but for one, tell nothing."""
        won = sum(mine.wall_s < other.wall_s for mine, other in zip(self.ours, self.peer))
        if abs(self.speed - 1) <= LEVEL or 1 < won < len(self.ours) - 1:
            return "level"
        return "ahead" if self.speed > 1 else "**behind**"

    def cells(self):
        sides = (self.ours, self.peer)
        return [self.case, *(f"{self.pictures / b.median(runs, 'wall_s'):.1f}" for runs in sides), f"{self.speed:.3f}",
                *(f"{b.median(runs, 'cpu_s'):.2f}" for runs in sides), f"{self.cpu:.3f}", self.verdict]


def show(pairs, title, plot):
    """The table, and below it the reasons for what is behind."""
    svg.bars(plot, title, "ratio to the peer; speed: longer is better, processor time: shorter is better",
             ["speed", "processor time"], [(pair.case, [pair.speed, pair.cpu]) for pair in pairs], mark=1)
    head = ["case", "ours, pictures/s", "peer, pictures/s", "speed, ours/peer", "ours, CPU s", "peer, CPU s",
            "CPU time, ours/peer", "speed is"]
    reasons = [f"\nBehind, {pair.case}: {pair.why or 'the reason is not known yet.'}\n"
               for pair in pairs if "behind" in pair.verdict]
    return b.table(head, [pair.cells() for pair in pairs]) + "".join(reasons) + "\n"

"""The pieces that every picture or packet passes, timed alone; picture conversion beside swscale's."""
import json
import re

from . import bench as b
from . import svg

SAME_SIZE_AIM, SCALED_AIM = 0.15, 0.5
TO_US = {"ns": 1e-3, "us": 1, "ms": 1e3}


def medians_us(bench):
    """Median times by name; repetitions of all pieces are shuffled, so that none has the quiet minute."""
    answer = json.loads(b.call(
        bench.program("bench_pieces"), "--benchmark_format=json", "--benchmark_repetitions=5",
        "--benchmark_report_aggregates_only=true", "--benchmark_enable_random_interleaving=true",
        f"--benchmark_min_time={bench.choose(0.1, 0.01)}", limit_s=600))
    return {piece["run_name"]: piece["real_time"] * TO_US[piece["time_unit"]]
            for piece in answer["benchmarks"] if piece.get("aggregate_name") == "median"}


def picture_rows(times):
    """(what, swscale's time, ours), of names such as picture/bgra/1920x1080/swscale."""
    rows = []
    for name, ours in sorted(times.items()):
        what, _, side = name.rpartition("/")
        if name.startswith("picture/") and side == "zeva" and f"{what}/swscale" in times:
            rows.append((what.removeprefix("picture/"), times[f"{what}/swscale"], ours))
    return rows


def is_scaled(what):
    return len(set(re.findall(r"\d+x\d+", what))) > 1


def pictures(bench, rows):
    if not rows:
        return "Not measured: this build's bench_pieces has no `picture/` pieces.\n"
    text = b.table(["picture", "swscale, ms", "ours, ms", "ours/swscale"],
                   [[what, f"{peer / 1e3:.2f}", f"{ours / 1e3:.2f}", f"{ours / peer:.3f}"]
                    for what, peer, ours in rows]) + "\n"
    for kind, scaled, limit in (("same size", False, SAME_SIZE_AIM), ("scaled", True, SCALED_AIM)):
        ratios = [ours / peer for what, peer, ours in rows if is_scaled(what) == scaled]
        if ratios:
            text += b.aim(f"{kind}, slowest of {len(ratios)} against swscale", max(ratios), limit)
    svg.bars(bench.plot("pictures"), "Picture conversion on one thread", "time as a share of swscale's; "
             "shorter is better", ["ours/swscale"], [(what, [ours / peer]) for what, peer, ours in rows], mark=1)
    return text


def compare(bench):
    times = medians_us(bench)
    others = b.table(["piece", "time, us"], [[f"`{name}`", f"{time:.3g}"] for name, time in sorted(times.items())
                                             if not name.startswith("picture/")])
    return {"pictures": pictures(bench, picture_rows(times)), "pieces": others}

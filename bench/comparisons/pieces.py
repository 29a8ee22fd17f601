"""The pieces that every picture or packet passes, timed alone; picture conversion beside swscale's."""
import json
import re

from . import bench as b
from . import svg

SAME_SIZE_AIM, SCALED_AIM = 0.15, 0.5
WAYS = ("zeva", "zeva_avx2", "zeva_sse41", "zeva_plain")  # the first that there is, is what a host gets
TO_US = {"ns": 1e-3, "us": 1, "ms": 1e3}


def medians_us(bench):
    """Median times by name; repetitions of all pieces are shuffled, so that none has the quiet minute."""
    answer = json.loads(b.call(
        bench.program("bench_pieces"), "--benchmark_format=json", "--benchmark_repetitions=5",
        "--benchmark_report_aggregates_only=true", "--benchmark_enable_random_interleaving=true",
        f"--benchmark_min_time={bench.choose(0.05, 0.01)}", limit_s=600))
    return {piece["run_name"]: piece["real_time"] * TO_US[piece["time_unit"]]
            for piece in sorted(answer["benchmarks"], key=lambda piece: piece["name"])
            if piece.get("aggregate_name") == "median"}


def conversions(times):
    """Times by way, by what is converted: names hold one way among the words of the conversion."""
    found = {}
    for name, time in times.items():
        words = [word for word in name.split("/") if word != "picture"]
        way = next((word for word in words if word in ("swscale", "memcpy", *WAYS)), None)
        if way is not None:
            what = "/".join(word for word in words if word != way)
            found.setdefault(what, {})[way] = time
    return {what: ways for what, ways in found.items() if "swscale" in ways and len(ways) > 1}


def is_scaled(what):
    return len({word for word in what.split("/") if re.fullmatch(r"\d+(x\d+)?", word)}) > 1


def pictures(bench, found):
    if not found:
        return "Not measured: this build's bench_pieces converts no pictures.\n"
    ours = [way for way in WAYS if any(way in ways for ways in found.values())]
    ratios = {what: [ways[way] / ways["swscale"] for way in ours if way in ways] for what, ways in found.items()}
    copies = {what: ways["memcpy"] / ways["swscale"] for what, ways in found.items() if "memcpy" in ways}
    text = b.table(["picture, height", "swscale, ms", *(f"{way}/swscale" for way in ours), "memcpy/swscale"],
                   [[what, f"{ways['swscale'] / 1e3:.2f}", *(f"{ratio:.3f}" for ratio in ratios[what]),
                     f"{copies[what]:.3f}" if what in copies else ""] for what, ways in found.items()]) + "\n"
    possible = {what for what in ratios if copies.get(what, 0) <= SAME_SIZE_AIM}
    for kind, scaled, limit, among in (
            ("same size", False, SAME_SIZE_AIM, ratios),
            ("same size, where a mere copy of the source keeps to the aim", False, SAME_SIZE_AIM, possible),
            ("scaled", True, SCALED_AIM, ratios)):
        best = [ratios[what][0] for what in among if is_scaled(what) == scaled]
        if best:
            text += b.aim(f"{kind}, slowest of {len(best)} against swscale", max(best), limit)
    svg.bars(bench.plot("pictures"), "Picture conversion on one thread, at the best level of this processor",
             "time as a share of swscale's; shorter is better", ["ours/swscale"],
             [(what, ratio[:1]) for what, ratio in ratios.items()], mark=1)
    return text


def compare(bench):
    times = medians_us(bench)
    others = [[f"`{name}`", f"{time:.3g}"] for name, time in times.items()
              if not any(word in ("swscale", "memcpy", *WAYS) for word in name.split("/"))]
    return {"pictures": pictures(bench, conversions(times)), "pieces": b.table(["piece", "time, us"], others)}

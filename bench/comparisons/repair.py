"""Our repair beside `cp` of the same file and `ffmpeg -c copy` of the finished movie.

There are two of ours: the library's call, which is what copies; and `zeva repair`, which then reads the
result back to count and check what came.
"""
import os
import sys

from . import bench as b
from . import sources, svg

MEGABIT_S = 8
CALL = """import ctypes, sys
call = ctypes.CDLL(sys.argv[1]).ZEVA_StartRepair_sync
call.restype = ctypes.c_bool
sys.exit(not call(*[name.encode() for name in sys.argv[2:]], None, None))"""


def compare(bench):
    seconds = round(bench.choose(bench.gigabytes, 0.04) * 8000 / MEGABIT_S)
    sources.encoded(bench.at("long.mkv"), seconds, MEGABIT_S)
    # One file is both: the finished movie has its tables behind the broken one's end.
    movie, out = bench.at("whole.mp4"), bench.at("out.mp4")
    b.call(bench.zeva, "mux", "--fast", "-y", "--input", bench.at("long.mkv"), "-o", movie, "--keep-index")
    os.remove(bench.at("long.mkv"))
    library = os.path.join(bench.build, "lib", "libZEVALib.so")
    ended_early = (0, 3)  # 3: the last packet has no record
    sides = [
        b.Side("the library's repair",
               [sys.executable, "-c", CALL, library, movie, movie + ".index", out]),
        b.Side("`zeva repair`, which also reads the result back",
               [bench.zeva, "repair", movie, movie + ".index", "-o", out], good_statuses=ended_early),
        b.Side("`cp` of the broken file", ["cp", movie, out]),
        b.Side("`ffmpeg -c copy` of the finished file",
               [*sources.FFMPEG, "-i", movie, "-map", "0", "-c", "copy", out]),
    ]
    runs = b.run_in_turn(sides, bench.rounds, between=lambda: os.remove(out))
    rows = [[side.name, f"{b.median(mine, 'wall_s'):.2f}", b.memory(mine),
             f"{b.median_ratio(runs[0], mine, 'wall_s'):.2f} x"] for side, mine in zip(sides, runs)]
    svg.bars(bench.plot("repair"), f"Repair of {os.path.getsize(movie) / 1e9:.2f} GB",
             "seconds; shorter is better", ["wall"],
             [(side.name.replace("`", "").split(",")[0], [b.median(mine, "wall_s")])
              for side, mine in zip(sides, runs)])
    size = f"{os.path.getsize(movie) / 1e9:.2f} GB, {seconds} s of movie"
    return {"repair": b.table([size, "wall s", "most memory, MiB", "the library's repair takes"], rows)}

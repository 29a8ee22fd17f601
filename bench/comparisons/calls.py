"""The library as its host sees it at real speed: how long calls take, and what memory stays."""
import json
import statistics

from . import bench as b
from . import sources

P50_AIM_MS, P99_AIM_MS, RESIDENT_AIM_MIB = 4, 10, 236


def host_figures(bench, size, seconds):
    answer = b.call(bench.program("bench_host"), bench.at("host.mp4"), *size.split("x"), str(seconds), "real")
    return json.loads(answer)


def medians(answers):
    return {key: statistics.median(answer[key] for answer in answers) for key in answers[0]}


def pictures(bench):
    seconds = bench.choose(15, 2)
    sizes = ["1920x1080", "1280x720"]
    answers = {size: [] for size in sizes}
    for _ in range(bench.rounds):
        for size in sizes:
            answers[size].append(host_figures(bench, size, seconds))
    figures = [medians(answers[size]) for size in sizes]
    lines = [
        ["`ZEVA_write_video_bgra` p50 / p99 / max, ms",
         *(f"{f['call_p50_ms']:.1f} / {f['call_p99_ms']:.1f} / {f['call_max_ms']:.1f}" for f in figures)],
        ["of that, means: conversion / waiting for the encoder, ms",
         *(f"{f['convert_mean_ms']:.1f} / {f['encode_mean_ms']:.1f}" for f in figures)],
        ["`ZEVA_start`, ms", *(f"{f['start_ms']:.1f}" for f in figures)],
        ["`ZEVA_stop`, ms", *(f"{f['stop_ms']:.1f}" for f in figures)],
        ["resident at the end, MiB", *(f"{f['rss_end_kib'] / 1024:.1f}" for f in figures)],
    ]
    text = b.table([f"{bench.rounds} recordings of {seconds} s", *sizes], lines)
    return "\n".join([text, b.aim("1080p, p50 in ms", figures[0]["call_p50_ms"], P50_AIM_MS) +
                      b.aim("1080p, p99 in ms", figures[0]["call_p99_ms"], P99_AIM_MS) +
                      b.aim("1080p, resident MiB", figures[0]["rss_end_kib"] / 1024, RESIDENT_AIM_MIB)])


def packets(bench):
    seconds, movie = bench.choose(15, 3), bench.at("clip.mp4")
    sources.encoded(movie, 20, 4)
    host = bench.program("bench_packets")
    figures = medians([json.loads(b.call(host, movie, bench.at("packets.mp4"), str(seconds)))
                       for _ in range(bench.rounds)])
    return b.table(
        [f"{bench.rounds} recordings of {seconds} s, {sources.FPS} pictures/s", ""],
        [["first packet to first byte of output, ms", f"{figures['first_byte_ms']:.0f}"],
         ["`ZEVA2_write_video_packet` to the file, p50 / p99, ms",
          f"{figures['latency_p50_ms']:.0f} / {figures['latency_p99_ms']:.0f}"],
         ["the call itself, p50 / p99, ms",
          f"{figures['call_p50_ms']:.2f} / {figures['call_p99_ms']:.2f}"]])


def compare(bench):
    return {"calls": pictures(bench), "packet_calls": packets(bench)}

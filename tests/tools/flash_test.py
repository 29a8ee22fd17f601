"""Pictures and sound keep their times: every flash at its click, however uneven the movie."""
import concurrent.futures
import os

from flash_judge import Seen, apart_ms, compare, record
from flash_movie import VARIANTS, make
from support import EMULATOR, TOOL, ToolTest


def faults_of(name):
    """Of one movie through both ways of recording, into three containers."""
    folder = os.path.abspath(name)
    os.mkdir(folder)
    movie = make(folder, name)
    source = Seen(movie)
    faults = [] if apart_ms(source) < 1 else ["the source's own flashes are not at their clicks"]
    for command in ("record", "mux"):
        outputs, failure = record([*EMULATOR, TOOL, command], movie, folder)
        if failure:
            faults.append(f"{command}: {failure[-300:]}")
            continue
        for path in outputs:
            if told := compare(source, Seen(path)).complaint():
                faults.append(f"{os.path.basename(path)}: {told}")
    return faults


class FlashTest(ToolTest):
    def test_every_flash_is_there_and_at_its_click(self):
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            for name, faults in zip(VARIANTS, pool.map(faults_of, VARIANTS)):
                with self.subTest(name):
                    self.assertEqual(faults, [])

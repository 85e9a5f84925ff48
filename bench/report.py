"""What the daemon costs: runs build/bench's programs and prints each figure with its goal.

    bench/report.py figures [--json FILE]
    bench/report.py picture JSON SVG        draws what an event costs
    bench/report.py instructions [--update]
"""
import concurrent.futures
import json
import os
import platform
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BENCH = os.path.join(TOP, "build/bench/bench/bench")
DAEMON = os.path.join(TOP, "build/bench/src/macos/QlxDaemon")
COUNTED = os.path.join(TOP, "bench/instructions.json")


def output_of(*command, seconds=600):
    """What it says, unless it fails or takes longer, which ends this with its errors."""
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=seconds)
    except subprocess.TimeoutExpired:
        sys.exit(f"Error: {' '.join(command)}: does not end")
    if done.returncode != 0:
        sys.exit(f"{done.stderr}Error: {' '.join(command)}: status {done.returncode}")
    return done.stdout


def measured():
    """The repetitions of each measurement, by its name. Three processes, since where its code and its
    memory happen to lie makes one of them faster or slower for as long as it lives."""
    runs = {}
    for _ in range(3):
        with tempfile.NamedTemporaryFile(suffix=".json") as out:
            output_of(BENCH, "--benchmark_min_time=0.1", "--benchmark_repetitions=3",
                      "--benchmark_enable_random_interleaving=true",
                      "--benchmark_out_format=json", "--benchmark_out=" + out.name)
            for run in json.load(out)["benchmarks"]:
                if run.get("error_occurred"):
                    sys.exit(f"Error: {run['name']}: {run['error_message']}")
                if run["run_type"] == "iteration":
                    name = re.sub("/(iterations|min_time|process_time).*", "", run["run_name"])
                    runs.setdefault(name, []).append(run)
    return runs


class Daemon:
    """The daemon on a quiet simulated desktop, from its start to its run loop and to its end."""

    def __init__(self, place=None):
        self.folder = tempfile.TemporaryDirectory(prefix="qlx-bench-", dir=place)
        root = self.folder.name
        os.makedirs(root + "/disk/Applications/QlxControlCenter.app")
        self.environment = dict(os.environ, HOME=root, QLX_DESKTOP_ROOT=root + "/disk")

    def start(self):
        """Seconds to its run loop, before which it catches SIGHUP, SIGINT and SIGTERM."""
        begin = time.monotonic()
        self.process = subprocess.Popen([DAEMON], env=self.environment, stderr=subprocess.DEVNULL)
        while int(self.status(self.process.pid)["SigCgt"], 16) & 0x4003 != 0x4003:
            if self.process.poll() is not None or time.monotonic() > begin + 20:
                self.process.kill()
                self.process.wait()
                raise RuntimeError("the daemon does not run")
            time.sleep(0.0003)  # it needs the processor itself
        return time.monotonic() - begin

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait()

    def version(self):
        begin = time.monotonic()
        subprocess.run([DAEMON, "version"], env=self.environment, stdout=subprocess.DEVNULL)
        return time.monotonic() - begin

    @staticmethod
    def status(process):
        with open(f"/proc/{process}/status") as file:
            return dict(re.findall(r"^(\w+):\s*(.*)$", file.read(), re.M))

    def wake_ups(self):
        tasks = f"/proc/{self.process.pid}/task"
        return sum(int(self.status(f"{self.process.pid}/task/{task}")["voluntary_ctxt_switches"])
                   for task in os.listdir(tasks))


def idle_wake_ups(seconds):
    daemon = Daemon()
    daemon.start()
    time.sleep(3)
    before = daemon.wake_ups()
    time.sleep(seconds)
    after = daemon.wake_ups()
    daemon.stop()
    return after - before


def figures():
    """The rows of the table: what, its figure, its goal (none: stated), and of what it is made."""
    idling = concurrent.futures.ThreadPoolExecutor().submit(idle_wake_ups, 60)
    runs = measured()
    before, after = map(int, output_of(BENCH, "--day").split())
    # In memory, where that can be: the start waits for the rights file to be on the disk.
    in_memory, on_disk = Daemon("/dev/shm" if os.path.isdir("/dev/shm") else None), Daemon()
    starts, starts_on_disk, versions = [], [], []
    for _ in range(15):
        for daemon, times in ((in_memory, starts), (on_disk, starts_on_disk)):
            times.append(daemon.start())
            daemon.stop()
        versions.append(in_memory.version())
    idle = idling.result()

    rows = []

    def add(what, figure, goal, ours=None, floor=None, unit="ns"):
        rows.append({"what": what, "figure": figure, "goal": goal, "ours": ours, "floor": floor,
                     "unit": unit})

    def ratio(what, ours, floor, goal, unit="ns"):
        add(what, ours / floor, goal, ours, floor, unit)

    def beside(what, name, goal, items=1000):
        """Of what is done in turn with its floor, so many items at once."""
        run = middle_of(name)
        ratio(what, run["ours"] / items, run["floor"] / items, goal)

    def middle_of(name):
        """The repetition whose ratio is in the middle."""
        by_ratio = sorted(runs[name], key=lambda run: run["ours"] / run["floor"])
        return by_ratio[len(by_ratio) // 2]

    def median(name, counter):
        return statistics.median(run[counter] for run in runs[name])

    def longest(name, counter):
        return max(run[counter] for run in runs[name]) / 1e6

    beside("cached answer / floor", "cached_answer", 1.15)
    beside("cached answer through the store / floor", "answer_of_the_store", None)
    for what, name, goal in (("cached answer", "cached_answer_of_many", 1.2),
                             ("unbound input in an unknown application", "unbound_input_of_many", 2),
                             ("the first of a name", "first_look_of_many", None)):
        beside(what + ", 10,000 applications / 10", name, goal)
    for count, shown, goal in ((10, "10", 1.6), (10000, "10,000", 1.2)):
        beside(f"profile build / parse, {shown} applications",
               f"profile_build/{count}", 0.5, 1)
        beside(f"reload / (parse + serialise), {shown} applications",
               f"reload/{count}", goal, 1)
    beside("worker hand-over / bare queue", "hand_over", 1.1)
    beside("press / the bare platform calls of a click", "presses", None)
    beside("press + release / their bare platform calls, one of which wakes a thread", "click", 1.5, 1)
    beside("thousands at once / the same calls, none of which wakes a thread", "click_often", None)
    beside("motion value / its bare platform calls", "motion", None)
    for what, goal in (("calls", 3), ("allocations", 0), ("locks", 0)):
        add("motion value: " + what, max(run[what] for run in runs["motion"]), goal)
    quiet, storm = "each_callback/0", "each_callback/1"
    ratio("p99.9 of a tap callback, storm of reloads / quiet", median(storm, "p99.9"),
          median(quiet, "p99.9"), 3)
    add("longest tap callback in that storm, ms of work and waits", median(storm, "longest") / 1e6, 1)
    for what, name in (("storms", storm), ("quiet times", quiet)):
        add(f"the same of all nine {what}, ms", longest(name, "longest"), None)
        add(f"by the clock, with what others took of the processor, {what}, ms",
            longest(name, "longest by the clock"), None)
    add("clicks a second through the simulated desktop",
        1e9 / median("click_on_the_desktop", "real_time"), None)
    click = middle_of("click_often")
    add("the product's share of the processor's time then, percent", (click["ours"] - click["floor"])
        / 10 / median("click_on_the_desktop", "cpu_time"), None)
    for what, times, goal in (("", starts, 3), (", home folder on the disk", starts_on_disk, None)):
        ratio("start to listening / `version`" + what, statistics.median(times) * 1000,
              statistics.median(versions) * 1000, goal, "ms")
    ratio("memory after a day / after the start", after / 2**20, before / 2**20, 1.2, "MiB")
    # In 60 s: the quit timer 120, the settings watcher 120, the permission guard 60, the log 30.
    add("wake-ups in 60 idle seconds", idle, 330)
    return rows


def show(rows):
    for row in rows:
        mark = "" if row["goal"] is None else "ok" if row["figure"] <= row["goal"] else "ABOVE"
        of = f"{row['ours']:.4g} / {row['floor']:.4g} {row['unit']}" if row["floor"] else ""
        goal = "" if row["goal"] is None else f"<= {row['goal']}"
        print(f"{row['what']:71} {row['figure']:9.4g}  {goal:7} {mark:6} {of}")


def draw(rows, path):
    """Ours and the floor side by side, of what happens for an event."""
    shown = [row for row in rows if row["floor"] and row["unit"] == "ns"
             and row["what"].endswith((" / floor", "platform calls", "of a click", "a thread"))]
    widest = max(max(row["ours"], row["floor"]) for row in shown)
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="760" height="{52 * len(shown) + 40}" '
             'font-family="sans-serif" font-size="13">',
             '<rect width="100%" height="100%" fill="white"/>',
             '<text x="10" y="22">nanoseconds of the processor: ours (dark), the floor (light)</text>']
    for number, row in enumerate(shown):
        top = 40 + 52 * number
        lines.append(f'<text x="10" y="{top + 22}">{row["what"].split(" / ")[0]}</text>')
        for value, place, colour in ((row["ours"], top, "#345"), (row["floor"], top + 20, "#9bc")):
            width = max(1, 380 * value / widest)
            lines.append(f'<rect x="300" y="{place}" width="{width:.0f}" height="18" fill="{colour}"/>'
                         f'<text x="{width + 308:.0f}" y="{place + 14}">{value:.0f}</text>')
    with open(path, "w") as file:
        file.write("\n".join(lines + ["</svg>", ""]))


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True).stdout.split("\n")[0]


def last_word(line):
    return line.split()[-1] if line.split() else ""


def instructions(name):
    """Of one operation, all told, in the mean of a thousand."""
    with tempfile.NamedTemporaryFile() as out:
        output_of("valgrind", "--tool=callgrind", "--toggle-collect=*counted_operation*",
                  "--callgrind-out-file=" + out.name, BENCH, "--operation", name, "1000", seconds=60)
        return int(re.search(rb"^totals: (\d+)", out.read(), re.M)[1]) / 1000


def compare_instructions(update):
    with open(os.path.join(TOP, "build/bench/CMakeCache.txt")) as cache:
        compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache.read(), re.M)[1]
    # Their versions, by whatever names they are called and however they are packaged.
    found = {"compiler": last_word(first_line(compiler, "--version")),
             "library": last_word(first_line("ldd", "--version")), "processor": platform.machine()}
    try:
        with open(COUNTED) as file:
            expected = json.load(file)
    except FileNotFoundError:
        expected = {}
    if not update and any(expected.get(key) != found[key] for key in found):
        print("Instructions are not compared: they were counted with", expected, "and here is", found)
        return 3
    # What the platform's calls cost is the simulated desktop's and does not count.
    names = ("motion", "press", "release", "wheel step")
    counted = {name: round(instructions(name) - instructions("bare " + name)) for name in names}
    counted |= {name: round(instructions(name)) for name in ("cached answer", "unbound input")}
    if update:
        with open(COUNTED, "w") as file:
            json.dump(found | {"instructions": counted}, file, indent=4)
            file.write("\n")
    failed = False
    for name, count in counted.items():
        before = expected["instructions"][name] if not update else count
        mark = " MORE" if count > before * 1.05 else " LESS" if count < before * 0.8 else ""
        failed = failed or mark != ""
        print(f"{name:14} {count:6} instructions, {before:6} expected{mark}")
    return int(failed)


def main(arguments):
    if arguments[0] == "instructions":
        return compare_instructions("--update" in arguments)
    if arguments[0] == "picture":
        with open(arguments[1]) as file:
            draw(json.load(file), arguments[2])
        return 0
    try:
        rows = figures()
    except RuntimeError as error:
        sys.exit(f"Error: {error}")
    show(rows)
    if "--json" in arguments:
        with open(arguments[arguments.index("--json") + 1], "w") as file:
            json.dump(rows, file, indent=4)
            file.write("\n")
    return 0


sys.exit(main(sys.argv[1:]))

"""The tests on the emulated board. board.sh describes the arguments."""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

from board import COMMAND_S, LINE, Board, Failed, FarEnd, await_true, expect

# Bytes sent by the board that the emulator and the socket may still hold.
ON_THE_WAY = 8
STOP_S = 2.0
RESIDENT_KIB = 2048
BUSY = "U" * 2000


# --- The serial driver ----------------------------------------------------------------------------

ROWS = [(1200, "none", 8, 1), (2400, "even", 7, 2), (4800, "odd", 8, 1), (9600, "none", 5, 1),
        (19200, "even", 8, 1), (38400, "odd", 7, 1), (57600, "none", 6, 2), (115200, "none", 8, 1)]
FOUND = (4800, "E", 7, 2)


def set_line(board, baud=9600, parity="none", data=8, stop=1):
    board.run(f"rs232ctl params set baud={baud} parity={parity} data-bits={data} stop-bits={stop}")


def test_settings(board):
    """The UART has the settings of the parameter block, and the original ones after a stop."""
    board.run("/etc/init.d/S60rs232d stop")
    for baud, parity, data, stop in ROWS:
        set_line(board, baud, parity, data, stop)
        board.run(f"stty -F {LINE} 4800 cs7 parenb -parodd cstopb")
        board.run("/etc/init.d/S60rs232d start")
        board.await_serving()
        wanted = (baud, parity[0].upper(), data, stop)
        has = board.uart()[-1][1:]
        expect(has == wanted, f"the UART has {has} instead of {wanted}")
        board.run("/etc/init.d/S60rs232d stop")
        has = board.uart()[-1][1:]
        expect(has == FOUND, f"after the stop the UART has {has} instead of {FOUND}")
    board.run(f"stty -F {LINE} 9600 cs8 -parenb -cstopb")
    return f"{len(ROWS)} settings applied to the UART, and restored"


def test_drain(board):
    """A write returns when the line has sent its last byte."""
    set_line(board, 1200)
    board.start("1")
    board.line.clear()
    board.run(f"rs232ctl write --text {'U' * 240}")
    board.await_run("grep -q 'SEND *240' /tmp/log")
    end = time.time()
    await_true("240 bytes", lambda: len(board.line.received()) >= 240)
    late = end - board.line.arrivals[-1][0]
    expect(-0.1 < late < 1, f"the write returned {late:.2f} s after the last byte")
    return f"a write of 2 s returned {late:.2f} s after the last byte"


def test_break(board):
    """The clients receive a break as a zero byte; the line still works."""
    set_line(board)
    board.start()
    board.run("rm -f /tmp/client; sleep 600 | nc 127.0.0.1 4001 >/tmp/client & sleep 1")
    board.control("chardev-send-break", id="line0")
    board.line.send(b"after")
    board.await_run("grep -q after /tmp/client")
    got = board.run("od -An -tx1 /tmp/client; killall nc sleep")
    expect(got.split() == "00 61 66 74 65 72".split(), f"the client received {got}")
    return "the client received a zero byte, and the bytes after the break"


def test_idle(board):
    """An idle daemon does not wake up; its resident memory on ARM."""
    board.restart()
    time.sleep(2)
    look = "cd /proc/$(pidof rs232d); grep -h ^voluntary task/*/status; grep VmRSS status"
    begin, end = [[int(n) for n in re.findall(r"(\d+)(?: kB)?$", text, re.M)]
                  for text in (board.run(look), board.run(f"sleep 10; {look}"))]
    wake_ups = sum(end[:-1]) - sum(begin[:-1])
    expect(wake_ups <= 2, f"{wake_ups} wake-ups in 10 s")
    expect(end[-1] <= RESIDENT_KIB, f"{end[-1]} KiB resident")
    return f"{wake_ups} wake-ups in 10 s, {end[-1]} KiB resident"


def test_stop(board):
    """A stop on a busy line is short, and sends nothing at another speed."""
    set_line(board, 1200)
    board.restart()
    board.line.clear()
    board.run(f"rs232ctl write --text {BUSY}")
    time.sleep(0.5)
    begin = time.time()
    took = board.run("cat /proc/uptime; pid=$(pidof rs232d); kill $pid;"
                     " while [ -e /proc/$pid ]; do usleep 10000; done; cat /proc/uptime").split()
    seconds = float(took[2]) - float(took[0])
    time.sleep(1)
    changed = [row[0] for row in board.uart() if row[0] > begin and row[1] != 1200]
    expect(changed, "the speed was not restored")
    sent = len(board.line.received())
    wrong = sum(at > changed[0] for at, _ in board.line.arrivals)
    expect(seconds <= STOP_S, f"the stop took {seconds:.1f} s")
    expect(wrong <= ON_THE_WAY, f"{wrong} bytes were sent at another speed")
    expect(0 < sent < len(BUSY), f"{sent} bytes were sent")
    return f"{seconds:.2f} s with {len(BUSY)} bytes queued at 1200 baud; {sent} were sent"


def test_unbound(board):
    """The line is not reported as back while its driver is unbound."""
    set_line(board)
    board.start()
    device = board.run(f"basename $(readlink /sys/class/tty/{os.path.basename(LINE)}/device)")
    driver = "/sys/bus/pci/drivers/serial"
    board.run(f"echo {device} >{driver}/unbind")
    board.await_run("grep -q 'serial line lost' /tmp/log")
    time.sleep(5)
    reports = (board.count("serial line lost"), board.count("serial line is back"))
    expect(reports == (1, 0), f"reported lost {reports[0]} times, back {reports[1]} times")
    board.run(f"echo {device} >{driver}/bind")
    board.await_run("grep -q 'serial line is back' /tmp/log")
    board.line.clear()
    board.run("rs232ctl write --text bound-again")
    board.line.await_bytes(b"bound-again")
    return "reported lost once, and back when the driver was bound"


def test_usb(out):
    """A USB adapter is unplugged and plugged in, idle and under load."""
    with Board(out, usb=True) as board:
        set_line(board, 115200)
        board.start()
        for load in (False, True):
            if load:
                board.run(f"(while :; do rs232ctl write --text {BUSY[:500]}; done) >/dev/null 2>&1"
                          " & echo $! >/tmp/load")
                time.sleep(2)
            board.unplug()
            board.await_run("[ $(grep -c 'serial line lost' /tmp/log) = %d ]" % (1 + load))
            time.sleep(3)
            expect(board.count("serial line is back") == load, "reported back without an adapter")
            board.plug()
            board.await_run("[ $(grep -c 'serial line is back' /tmp/log) = %d ]" % (1 + load))
            if load:
                board.run("kill $(cat /tmp/load)")
                # A full socket would drop the next datagram.
                board.await_run("grep -q ':2724 .* 00000000:00000000 ' /proc/net/udp", 60)
            board.run("rs232ctl write --text plugged-%d" % load)
            board.line.await_bytes(b"plugged-%d" % load)
    return "lost and back, idle and under load"


# --- Reboots --------------------------------------------------------------------------------------

def test_update(out, program):
    """A firmware update of a camera module, the reboot, and the service after it."""
    with (FarEnd(program, "QB-310") as micom,
          Board(out, model="QB-310", reboots=True) as board):
        board.attach(micom)
        board.restart()
        board.await_run("[ -s /var/nvt/camera.info ]")
        board.run("head -c 3064 /dev/urandom >/tmp/image")
        board.run("rs232ctl firmware-update --yes /tmp/image")
        micom.await_output("loader: all bytes received, checksum correct", 120)
        board.read_console("@@RESET", COMMAND_S, "micom_reset")
        with FarEnd(program, "QB-310") as reset:
            board.attach(reset)
            board.await_up()
            board.await_run("[ -s /var/nvt/camera.info ]")
            board.run("rs232ctl ptz zoom-tele")
            reset.await_output("zoom")
    return "3000 bytes at 115200 baud, reboot, service"


# Seconds from a save to the power cut; None: cut during continuous saves.
CUTS = [0.5, 1, None, 2, 3, None, 4, 5, None, 8]
STORED = r"zoom_position=(\d+)\nfocus_position=(\d+)"
BAUDS = [1200, 2400, 4800, 19200]


def stored(board):
    return board.run("cat /etc/mfz.conf")


def save(board, verb):
    """Moves the lens, waits until its positions are saved, and returns them."""
    before = stored(board)
    board.run(f"rs232ctl ptz {verb} --for 200ms")
    board.await_run(f"[ \"$(cat /etc/mfz.conf)\" != \"{before}\" ]", 5)
    return stored(board)


def test_cuts(out, program, count):
    """After a power cut the settings are complete and kept, and no writer is blocked."""
    figures = dict.fromkeys(["broken", "old", "blocked", "params lost"], 0)
    with tempfile.NamedTemporaryFile() as disk, FarEnd(program, "QB-420") as lens:
        shutil.copy(f"{out}/disk.ext4", disk.name)
        kept = baud = None
        for number in range(count + 1):
            with Board(out, model="QB-420", disk=disk.name) as board:
                board.attach(lens)
                if number > 0:
                    look_after_cut(board, kept, baud, figures)
                if number < count:
                    baud = BAUDS[number % len(BAUDS)]
                    kept = save_before_cut(board, baud, CUTS[number % len(CUTS)])
    result = f"{count} power cuts: " + ", ".join(f"{n} {what}" for what, n in figures.items())
    expect(not any(figures.values()), result)
    return result


def save_before_cut(board, baud, wait):
    """Saves positions and a parameter; returns the positions that the cut must keep, or None."""
    if wait is None:
        board.run(f"rs232ctl params set baud={baud}")
        board.run("(while :; do for verb in near far; do rs232ctl ptz focus-$verb --for 50ms;"
                  " done; done) >/dev/null 2>&1 &")
        time.sleep(3)
        return None
    positions = save(board, "focus-near")
    board.run(f"rs232ctl params set baud={baud}")
    time.sleep(wait)
    return positions


def look_after_cut(board, kept, baud, figures):
    text = stored(board)
    figures["broken"] += not re.fullmatch(STORED, text)
    figures["old"] += kept is not None and text != kept
    figures["params lost"] += f"baud          {baud}" not in board.run("rs232ctl params show")
    try:
        save(board, "focus-far")
    except Failed:
        figures["blocked"] += 1
        board.run("rm -f /etc/temp.conf")


# --- The run --------------------------------------------------------------------------------------

ON_BOARD = {"settings": test_settings, "drain": test_drain, "break": test_break,
            "idle": test_idle, "stop": test_stop, "unbound": test_unbound}
# Speed at which the far end reads, where it must not be faster than the line.
SLOW = {test_drain: 1200, test_stop: 1200}


def on_board(out, test):
    with Board(out, baud=SLOW.get(test, 0)) as board:
        return test(board)


def run_test(name, test):
    begin = time.time()
    try:
        verdict, text = "ok", test()
    except Failed as failure:
        verdict, text = "FAILED", str(failure)
    print(f"{verdict + ':':7s} {name:9s} {time.time() - begin:4.0f} s  {text}", flush=True)
    return verdict == "ok"


def run_tests(out, program, arguments):
    names = [word for word in arguments if not word.startswith("--")]
    is_quick = "--quick" in arguments
    cuts = 3 if is_quick else 100 if "--long" in arguments else 20
    tests = {
        **{name: lambda test=test: on_board(out, test) for name, test in ON_BOARD.items()},
        "usb": lambda: test_usb(out),
        "update": lambda: test_update(out, program),
        "cuts": lambda: test_cuts(out, program, cuts),
    }
    names = names or (["settings", "stop", "cuts"] if is_quick else tests)
    return all([run_test(name, test) for name, test in tests.items() if name in names])


def run_shell(out, program, model):
    with FarEnd(program, model, shown=True) as far_end:
        print(f"board.sh: {model}. Exit with `poweroff`; `rs232ctl --help` lists the commands.")
        machine = Board.machine(out, model, usb=False, disk=None, reboots=False)
        subprocess.run([*machine, "-chardev", "stdio,id=con,signal=off", "-serial", "chardev:con",
                        "-chardev", f"serial,id=line0,path={far_end.pty}",
                        "-device", "pci-serial,chardev=line0"], check=False)


def main():
    out, program, *arguments = sys.argv[1:]
    try:
        if arguments[:1] == ["--shell"]:
            run_shell(out, program, *(arguments[1:] or ["QB-620"]))
            return 0
        return 0 if run_tests(out, program, arguments) else 1
    except Failed as failure:
        print(f"board.sh: {failure}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())

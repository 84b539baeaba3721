"""An emulated board, its console, and the host's end of its serial line.

Everything that is started here ends with this process (setpriv --pdeathsig), however that ends.
"""
import json
import os
import re
import select
import socket
import subprocess
import tempfile
import threading
import time

BOOT_S = 240  # an idle machine takes 5
COMMAND_S = 120
LINE = "/dev/ttyS0"
USB_LINE = "/dev/ttyUSB0"


class Failed(Exception):
    """What was expected did not come about."""


def expect(condition, text):
    if not condition:
        raise Failed(text)


def await_true(what, condition, limit_s=40):
    """Waits until condition() is true; returns what it returned."""
    end = time.time() + limit_s
    while True:
        value = condition()
        if value:
            return value
        expect(time.time() < end, f"not within {limit_s} s: {what}")
        time.sleep(0.02)


class Line:
    """The host's end of a line: takes what comes, at most `baud` / 10 bytes a second if that is
    set, and knows when each byte came. What is not taken holds the board's transmitter up."""

    def __init__(self, far, baud):
        self.far = far
        self.byte_s = 10 / baud if baud else 0
        self.arrivals = []  # (time, bytes)
        threading.Thread(target=self._take, daemon=True).start()

    def _take(self):
        due = 0.0
        while True:
            chunk = self.far.recv(1 if self.byte_s else 4096)
            if not chunk:
                return
            now = time.time()
            self.arrivals.append((now, chunk))
            if self.byte_s:
                due = max(due, now - 4 * self.byte_s) + self.byte_s
                time.sleep(max(0, due - now))

    def received(self):
        return b"".join(chunk for _, chunk in self.arrivals)

    def clear(self):
        self.arrivals = []

    def send(self, data):
        self.far.sendall(data)

    def await_bytes(self, data, limit_s=40):
        await_true(f"{data!r} on the line", lambda: data in self.received(), limit_s)


class FarEnd:
    """A head, module or lens on a pty: the bench's own (tests/service/far_end.cpp), in a mount
    namespace where it may write its files. Its words are kept, or `shown` on standard output."""

    WORLD = """
        for place in /etc /var /run /mnt; do mount -t tmpfs tmpfs $place; done
        mkdir /var/nvt /mnt/pts
        mount -t devpts -o newinstance,ptmxmode=0666,mode=0620 devpts /mnt/pts
        ln -s pts/ptmx /mnt/ptmx
        mount --move /mnt /dev
        exec setpriv --pdeathsig KILL "$@" """

    def __init__(self, program, model, shown=False):
        self.words = tempfile.NamedTemporaryFile()
        namespaces = "-mn" if os.geteuid() == 0 else "-rmn"
        self.process = subprocess.Popen(
            ["unshare", namespaces, "sh", "-ec", self.WORLD, "sh", program, model, "4001"],
            stdin=subprocess.PIPE, stdout=None if shown else self.words)
        root = f"/proc/{self.process.pid}/root"
        link = f"{root}/dev/ttyS1"
        await_true("the far end's pty", lambda: os.path.islink(link) or self.process.poll())
        expect(self.process.poll() is None, f"no far end for {model}")
        self.pty = root + os.readlink(link)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def said(self, words):
        with open(self.words.name, errors="replace") as file:
            return words in file.read()

    def await_words(self, words, limit_s=40):
        await_true(f"far end: {words}", lambda: self.said(words), limit_s)


class Board:
    """One board, from power on to power off (`with`). `out` holds what it boots from."""

    def __init__(self, out, model="QB-620", usb=False, disk=None, baud=0, reboots=False):
        self.uart_log = tempfile.NamedTemporaryFile()
        self.console, console = socket.socketpair()
        self.qmp, qmp = socket.socketpair()
        far, near = socket.socketpair()
        # Held up at once when nobody takes what is there.
        near.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1)
        self.ends = {"con": console, "qmp": qmp, "line0": near}
        self.text = ""  # what came from the console and was not looked at
        self.commands = 0
        arguments = self.machine(out, model, usb, disk, reboots)
        for name, end in self.ends.items():
            arguments += ["-chardev", f"socket,id={name},fd={end.fileno()}"]
        arguments += ["-serial", "chardev:con", "-mon", "chardev=qmp,mode=control"]
        arguments += ["-trace", "serial_update_parameters", "-D", self.uart_log.name,
                      "-msg", "timestamp=on"]
        if usb:
            arguments += ["-device", "nec-usb-xhci,id=usb", "-device", self.adapter()]
        else:
            arguments += ["-device", "pci-serial,chardev=line0"]
        self.process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL,
                                        pass_fds=[end.fileno() for end in self.ends.values()])
        for end in self.ends.values():
            end.close()
        self.line = Line(far, baud)
        self.qmp_file = self.qmp.makefile("r")
        self.qmp_file.readline()
        self.ask("qmp_capabilities")

    @staticmethod
    def machine(out, model, usb, disk, reboots):
        """What every board has, the tests' and the one with a console for a user."""
        line = USB_LINE if usb else LINE
        arguments = ["setpriv", "--pdeathsig", "KILL", "qemu-system-arm",
                     "-M", "virt,highmem=off", "-cpu", "cortex-a7", "-m", "96",
                     "-nographic", "-nodefaults", "-kernel", f"{out}/vmlinuz",
                     "-initrd", f"{out}/root.cpio", "-append",
                     f"console=ttyAMA0 quiet loglevel=1 panic=-1 MODEL={model} LINE={line}"]
        if not reboots:
            arguments += ["-no-reboot"]
        if disk:
            # The file has what the board's kernel handed to the disk, and no more.
            arguments += ["-drive", f"if=none,id=disk,format=raw,file={disk}",
                          "-device", "virtio-blk-device,drive=disk"]
        return arguments

    @staticmethod
    def adapter():
        return "usb-serial,id=adapter,bus=usb.0,chardev=line0,always-plugged=on"

    def __enter__(self):
        try:
            self.await_up()
        except BaseException:
            self.cut()
            raise
        return self

    def __exit__(self, *_):
        self.cut()

    def cut(self):
        """Power off, without a warning: what is in the memory of the board is lost."""
        self.process.kill()
        self.process.wait()
        for end in (self.console, self.qmp, self.line.far):
            end.shutdown(socket.SHUT_RDWR)

    # --- Console ----------------------------------------------------------------------------------

    def read_console(self, pattern, limit_s, what):
        """Returns the match of `pattern`, and drops what came up to its end."""
        end = time.time() + limit_s
        while True:
            match = re.search(pattern, self.text)
            if match:
                self.text = self.text[match.end():]
                return match
            left = end - time.time()
            ready = left > 0 and select.select([self.console], [], [], left)[0]
            chunk = self.console.recv(65536) if ready else b""
            expect(chunk, f"{what}: the console ends with {self.text[-300:]!r}")
            self.text += chunk.decode(errors="replace")

    def await_up(self):
        self.read_console("@@UP", BOOT_S, "boot")
        self.read_console("# ", BOOT_S, "shell")
        self.console.sendall(b"stty -echo; PS1=; PS2=; echo @@''SHELL\n")
        self.read_console("@@SHELL", COMMAND_S, "shell")
        self.await_serving()

    def run(self, command, limit_s=COMMAND_S, status=0):
        """Runs a command; returns what it printed. Any status is fine where `status` is None."""
        self.commands += 1
        mark = f"@@{self.commands}"
        self.console.sendall(f"{{ {command}\n}} 2>&1; echo {mark} $?.\n".encode())
        match = self.read_console(rf"(?s)(.*?){mark} (\d+)\.", limit_s, command)
        expect(status is None or int(match[2]) == status,
               f"{command}: status {match[2]}: {match[1]}")
        return match[1].replace("\r", "").strip()

    def await_run(self, command, limit_s=40):
        """Until a command succeeds, on the board."""
        polls = limit_s * 20
        self.run(f"n=0; until {command}; do n=$((n + 1)); [ $n -lt {polls} ] || break;"
                 f" usleep 50000; done; [ $n -lt {polls} ]", limit_s * 4 + COMMAND_S)

    def await_serving(self):
        self.await_run("grep -q ':2721 ' /proc/net/udp")  # the command channel

    def start(self, arguments=""):
        """Starts the daemon with what it prints in /tmp/log."""
        self.run("/etc/init.d/S60rs232d stop")
        self.run(f"rs232d {arguments} >/tmp/log 2>&1 </dev/null &")
        self.await_serving()

    def restart(self):
        self.run("/etc/init.d/S60rs232d restart")
        self.await_serving()

    def count(self, words):
        return int(self.run(f"grep -c '{words}' /tmp/log", status=None))

    # --- The machine ------------------------------------------------------------------------------

    def ask(self, command, **arguments):
        self.qmp.sendall(json.dumps({"execute": command, "arguments": arguments}).encode())
        return self.await_qmp(lambda reply: "return" in reply or "error" in reply)

    def await_qmp(self, is_wanted):
        while True:
            line = self.qmp_file.readline()
            expect(line, "the emulator has ended")
            reply = json.loads(line)
            if is_wanted(reply):
                expect("error" not in reply, f"emulator: {reply}")
                return reply

    def attach(self, far_end):
        """Puts a far end behind the line, in place of what is there."""
        self.ask("chardev-change", id="line0",
                 backend={"type": "serial", "data": {"device": far_end.pty}})

    def unplug(self):
        self.ask("device_del", id="adapter")
        self.await_qmp(lambda reply: reply.get("data", {}).get("device") == "adapter")

    def plug(self):
        driver, *pairs = self.adapter().split(",")
        self.ask("device_add", driver=driver, **dict(
            (name, True if value == "on" else value)
            for name, value in (pair.split("=") for pair in pairs)))

    def uart(self):
        """[(time, baud, parity, data bits, stop bits)]: every setting that the UART has had."""
        row = (r"@(\d+\.\d+):serial_update_parameters "
               r"baudrate=(\d+) parity='(.)' data=(\d) stop=(\d)")
        with open(self.uart_log.name) as file:
            found = re.findall(row, file.read())
        return [(float(at), int(baud), parity, int(data), int(stop))
                for at, baud, parity, data, stop in found]

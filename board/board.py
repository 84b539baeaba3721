"""An emulated board, its console, and the host's end of its serial line.

All child processes die with this process (setpriv --pdeathsig).
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
    """An expectation of a test was not met."""


def expect(condition, text):
    if not condition:
        raise Failed(text)


def await_true(what, condition, limit_s=40):
    """Waits until condition() is true and returns its result."""
    end = time.time() + limit_s
    while True:
        value = condition()
        if value:
            return value
        expect(time.time() < end, f"timeout after {limit_s} s: {what}")
        time.sleep(0.02)


class Line:
    """The host's end of a line. Reads and timestamps all bytes, at most `baud` / 10 bytes a second
    if `baud` is not 0. Unread bytes block the board's transmitter."""

    def __init__(self, far, baud):
        self.far = far
        self.byte_s = 10 / baud if baud else 0
        self.arrivals = []  # (time, bytes)
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
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
    """A head, module or lens on a pty (tests/service/far_end.cpp), in a mount namespace for its
    files. Its output is kept, or printed on standard output if `shown`."""

    WORLD = """
        for place in /etc /var /run /mnt; do mount -t tmpfs tmpfs $place; done
        mkdir /var/nvt /mnt/pts
        mount -t devpts -o newinstance,ptmxmode=0666,mode=0620 devpts /mnt/pts
        ln -s pts/ptmx /mnt/ptmx
        mount --move /mnt /dev
        exec setpriv --pdeathsig KILL "$@" """

    def __init__(self, program, model, shown=False):
        self.output = tempfile.NamedTemporaryFile()
        namespaces = "-mn" if os.geteuid() == 0 else "-rmn"
        self.process = subprocess.Popen(
            ["unshare", namespaces, "sh", "-ec", self.WORLD, "sh", program, model, "4001"],
            stdin=subprocess.PIPE, stdout=None if shown else self.output)
        root = f"/proc/{self.process.pid}/root"
        link = f"{root}/dev/ttyS1"
        await_true("the far end's pty", lambda: os.path.islink(link) or self.process.poll())
        expect(self.process.poll() is None, f"cannot start the far end of {model}")
        self.pty = root + os.readlink(link)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def has_printed(self, text):
        with open(self.output.name, errors="replace") as file:
            return text in file.read()

    def await_output(self, text, limit_s=40):
        await_true(f"far end: {text}", lambda: self.has_printed(text), limit_s)


class Board:
    """A board that runs inside a `with` block. It boots from the files in `out`."""

    def __init__(self, out, model="QB-620", usb=False, disk=None, baud=0, reboots=False):
        self.uart_log = tempfile.NamedTemporaryFile()
        self.console, console = socket.socketpair()
        self.qmp, qmp = socket.socketpair()
        far, near = socket.socketpair()
        # The smallest buffer, so that unread bytes block the board at once.
        near.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1)
        self.ends = {"con": console, "qmp": qmp, "line0": near}
        self.text = ""  # console output not yet matched
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
        self.control("qmp_capabilities")

    @staticmethod
    def machine(out, model, usb, disk, reboots):
        """Arguments that the boards of the tests and of --shell have in common."""
        line = USB_LINE if usb else LINE
        arguments = ["setpriv", "--pdeathsig", "KILL", "qemu-system-arm",
                     "-M", "virt,highmem=off", "-cpu", "cortex-a7", "-m", "96",
                     "-nographic", "-nodefaults", "-kernel", f"{out}/vmlinuz",
                     "-initrd", f"{out}/root.cpio", "-append",
                     f"console=ttyAMA0 quiet loglevel=1 panic=-1 MODEL={model} LINE={line}"]
        if not reboots:
            arguments += ["-no-reboot"]
        if disk:
            # The file contains exactly what the board's kernel has written to the disk.
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
        """Cuts the power: everything in the board's memory is lost."""
        self.process.kill()
        self.process.wait()
        for end in (self.console, self.qmp, self.line.far):
            end.shutdown(socket.SHUT_RDWR)

    # --- Console ----------------------------------------------------------------------------------

    def read_console(self, pattern, limit_s, what):
        """Waits for `pattern` and returns the match; drops the output up to its end."""
        end = time.time() + limit_s
        while True:
            match = re.search(pattern, self.text)
            if match:
                self.text = self.text[match.end():]
                return match
            left = end - time.time()
            ready = left > 0 and select.select([self.console], [], [], left)[0]
            chunk = self.console.recv(65536) if ready else b""
            expect(chunk, f"{what}: timeout; last console output: {self.text[-300:]!r}")
            self.text += chunk.decode(errors="replace")

    def await_up(self):
        self.read_console("@@UP", BOOT_S, "boot")
        self.read_console("# ", BOOT_S, "shell")
        self.console.sendall(b"stty -echo; PS1=; PS2=; echo @@''SHELL\n")
        self.read_console("@@SHELL", COMMAND_S, "shell")
        self.await_serving()

    def run(self, command, limit_s=COMMAND_S, status=0):
        """Runs a command and returns its output. Accepts any exit status if `status` is None."""
        self.commands += 1
        mark = f"@@{self.commands}"
        self.console.sendall(f"{{ {command}\n}} 2>&1; echo {mark} $?.\n".encode())
        match = self.read_console(rf"(?s)(.*?){mark} (\d+)\.", limit_s, command)
        expect(status is None or int(match[2]) == status,
               f"{command}: status {match[2]}: {match[1]}")
        return match[1].replace("\r", "").strip()

    def await_run(self, command, limit_s=40):
        """Repeats a command on the board until it succeeds."""
        polls = limit_s * 20
        self.run(f"n=0; until {command}; do n=$((n + 1)); [ $n -lt {polls} ] || break;"
                 f" usleep 50000; done; [ $n -lt {polls} ]", limit_s * 4 + COMMAND_S)

    def await_serving(self):
        self.await_run("grep -q ':2721 ' /proc/net/udp")  # the command channel

    def start(self, arguments=""):
        """Starts the daemon with its output in /tmp/log."""
        self.run("/etc/init.d/S60rs232d stop")
        self.run(f"rs232d {arguments} >/tmp/log 2>&1 </dev/null &")
        self.await_serving()

    def restart(self):
        self.run("/etc/init.d/S60rs232d restart")
        self.await_serving()

    def count(self, text):
        return int(self.run(f"grep -c '{text}' /tmp/log", status=None))

    # --- The machine ------------------------------------------------------------------------------

    def control(self, command, **arguments):
        self.qmp.sendall(json.dumps({"execute": command, "arguments": arguments}).encode())
        return self.await_qmp(lambda reply: "return" in reply or "error" in reply)

    def await_qmp(self, is_wanted):
        while True:
            line = self.qmp_file.readline()
            expect(line, "the emulator exited")
            reply = json.loads(line)
            if is_wanted(reply):
                expect("error" not in reply, f"emulator: {reply}")
                return reply

    def attach(self, far_end):
        """Connects the line to a far end instead of the socket."""
        self.control("chardev-change", id="line0",
                 backend={"type": "serial", "data": {"device": far_end.pty}})

    def unplug(self):
        self.control("device_del", id="adapter")
        self.await_qmp(lambda reply: reply.get("data", {}).get("device") == "adapter")

    def plug(self):
        driver, *pairs = self.adapter().split(",")
        self.control("device_add", driver=driver, **dict(
            (name, True if value == "on" else value)
            for name, value in (pair.split("=") for pair in pairs)))

    def uart(self):
        """Returns all settings of the UART so far: [(time, baud, parity, data bits, stop bits)]."""
        row = (r"@(\d+\.\d+):serial_update_parameters "
               r"baudrate=(\d+) parity='(.)' data=(\d) stop=(\d)")
        with open(self.uart_log.name) as file:
            found = re.findall(row, file.read())
        return [(float(at), int(baud), parity, int(data), int(stop))
                for at, baud, parity, data, stop in found]

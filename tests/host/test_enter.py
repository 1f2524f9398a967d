"""enter keeps its promises: a fresh host each time, the command's own status, and an untouched
machine. Runs on the machine itself, as root."""
import os
import pathlib
import select
import signal
import shutil
import subprocess
import tempfile
import unittest

HOST = pathlib.Path(__file__).resolve().parent
ENTER = str(HOST / "enter")


def enter(*words, **more):
    return subprocess.run([ENTER, *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, timeout=120, check=False, **more)


def restore_signals():
    for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
        signal.signal(number, signal.SIG_DFL)


def in_shell(script, *options):
    return enter(*options, "bash", "-c", script)


class Enter(unittest.TestCase):
    def test_passes_the_commands_status_on(self):
        for status in (0, 1, 3, 255):
            self.assertEqual(in_shell(f"exit {status}").returncode, status)

    def test_tells_a_signal_by_128_and_its_number(self):
        self.assertEqual(in_shell("kill -KILL $$").returncode, 128 + 9)

    def test_gives_the_command_its_words_and_its_streams(self):
        ended = enter("printf", "%s|", "a b", "", "c\nd")
        self.assertEqual((ended.stdout, ended.stderr), ("a b||c\nd|", ""))

    def test_hands_nothing_of_the_callers_environment_on(self):
        ended = enter("env", env={**os.environ, "SECRET_OF_THE_CALLER": "x"})
        self.assertIn("MAILVEK_HOST=1\n", ended.stdout)
        self.assertNotIn("SECRET_OF_THE_CALLER", ended.stdout)

    def test_makes_a_fresh_host_each_time(self):
        self.assertEqual(in_shell("touch /etc/left-over /run/left-over /tmp/left-over").returncode, 0)
        self.assertEqual(in_shell("ls /etc/left-over /run/left-over /tmp/left-over").stdout, "")
        self.assertFalse(os.path.exists("/etc/left-over"))

    def test_leaves_no_mount_and_no_process_behind(self):
        before = pathlib.Path("/proc/self/mountinfo").read_text()
        ended = in_shell("sleep 4321 & mount -t tmpfs tmpfs /mnt; echo ran")
        self.assertEqual(ended.stdout, "ran\n")
        self.assertEqual(pathlib.Path("/proc/self/mountinfo").read_text(), before)
        lines = [path.read_bytes() for path in pathlib.Path("/proc").glob("[0-9]*/cmdline")]
        self.assertNotIn(b"sleep\x004321\x00", lines)

    def test_runs_as_root_under_a_name_of_its_own(self):
        ended = in_shell("id -u; hostname; pgrep -c .")
        user, name, processes = ended.stdout.split()
        self.assertEqual((user, name), ("0", "mailhost.example.test"))
        self.assertLess(int(processes), 10)
        self.assertNotEqual(os.uname().nodename, "mailhost.example.test")

    def test_puts_the_given_tool_in_its_place(self):
        ended = in_shell("/usr/local/orv/admin/sbin/mailvek x; mailvek y", "--tool", "/bin/echo")
        self.assertEqual(ended.stdout, "x\ny\n")

    def test_says_why_there_is_no_host(self):
        for words in ((), ("--no-such-option", "true"), ("--tool", "/nonexistent", "true")):
            ended = enter(*words)
            self.assertEqual(ended.returncode, 125, words)
            self.assertRegex(ended.stderr, r"\Amail host: [^\n]+\n\Z")

    def test_says_in_one_line_that_the_machine_refuses_namespaces(self):
        with tempfile.TemporaryDirectory() as directory:
            refusing = pathlib.Path(directory, "unshare")
            refusing.write_text("#!/bin/sh\necho 'unshare failed: Operation not permitted' >&2\nexit 1\n")
            refusing.chmod(0o755)
            ended = enter("true", env={**os.environ, "PATH": f"{directory}:{os.environ['PATH']}"})
        self.assertEqual(ended.returncode, 125)
        self.assertEqual(ended.stderr, "mail host: this machine refuses namespaces\n")

    def test_hands_standard_input_on(self):
        ended = subprocess.run([ENTER, "cat"], input="a line\n", stdout=subprocess.PIPE, text=True,
                               timeout=120, check=False)
        self.assertEqual((ended.returncode, ended.stdout), (0, "a line\n"))

    def test_ends_with_all_its_processes_when_it_is_killed(self):
        host = subprocess.Popen([ENTER, "sh", "-c", "echo up; sleep 5432"], stdout=subprocess.PIPE)
        self.assertEqual(host.stdout.readline(), b"up\n")
        host.terminate()
        self.assertEqual(host.wait(timeout=20), 128 + 9)
        with host.stdout:  # at its end only when no process of the host has it open
            self.assertTrue(select.select([host.stdout], [], [], 20)[0])
            self.assertEqual(host.stdout.read1(), b"")

    def test_leaves_the_commands_signals_as_they_are(self):
        ended = enter("grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status", preexec_fn=restore_signals)
        self.assertEqual(ended.stdout, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n")

    def test_is_refused_to_other_users_in_one_line(self):
        with tempfile.TemporaryDirectory() as directory:  # other users may not reach the checkout
            os.chmod(directory, 0o755)
            copy = shutil.copy(ENTER, directory)
            ended = subprocess.run([copy, "true"], user="nobody", cwd="/", stdin=subprocess.DEVNULL,
                                   capture_output=True, text=True, timeout=120, check=False)
        self.assertEqual(ended.returncode, 125)
        self.assertEqual(ended.stderr, "mail host: only root can make one; start it through sudo\n")

    def test_has_the_mail_server_that_the_machine_has_not(self):
        programs = ("/usr/sbin/postfix", "/usr/sbin/couriertcpd", "/usr/sbin/mariadbd")
        self.assertEqual(in_shell("ls " + " ".join(programs)).returncode, 0)
        for program in programs:
            self.assertFalse(os.path.exists(program), program)


if __name__ == "__main__":
    unittest.main()

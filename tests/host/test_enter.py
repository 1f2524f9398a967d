"""enter keeps its promises: a fresh host each time, the command's own status, and a machine
that never notices. Runs on the machine itself, as root."""
import os
import pathlib
import subprocess
import unittest

HOST = pathlib.Path(__file__).resolve().parent
ENTER = str(HOST / "enter")


def enter(*words, **more):
    return subprocess.run([ENTER, *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, timeout=120, check=False, **more)


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

    def test_is_refused_to_other_users_in_one_line(self):
        ended = enter("true", user="nobody")
        self.assertEqual(ended.returncode, 125)
        self.assertEqual(ended.stderr, "mail host: only root can make one; start it through sudo\n")

    def test_has_the_mail_server_that_the_machine_has_not(self):
        programs = ("/usr/sbin/postfix", "/usr/sbin/couriertcpd", "/usr/sbin/mariadbd")
        self.assertEqual(in_shell("ls " + " ".join(programs)).returncode, 0)
        for program in programs:
            self.assertFalse(os.path.exists(program), program)


if __name__ == "__main__":
    unittest.main()

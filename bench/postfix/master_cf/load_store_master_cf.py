"""Loading and storing a master.cf of 200 services, against postconf changing one column of one."""

import shutil

from run import Row

ENTRY = """service{0} inet n       -       y       {0}      1       smtpd
  -o syslog_name=postfix/service{0}
# what service{0} is for
  -o smtpd_tls_security_level=encrypt

"""


def row(bench):
    directory, kept = bench.directory / "etc", bench.directory / "kept"
    shutil.copytree("/etc/postfix", directory)
    master = directory / "master.cf"
    kept.write_text("# services\n" + "".join(ENTRY.format(number) for number in range(200)))
    return Row(
        ours=[bench.program("bench_load_store_master_cf"), master],
        other=["/usr/sbin/postconf", "-c", directory, "-F", "service100/inet/wakeup=100"],
        goal=1,
        times=20,
        before=lambda: shutil.copyfile(kept, master),
        left=lambda: [line for line in master.read_text().split() if line.startswith("service")],
    )

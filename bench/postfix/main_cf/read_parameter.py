"""Reading a parameter of main.cf 100 times, against postconf -h alone."""

from run import Row

TIMES = 100


def row(bench):
    loop = f"i=0; while [ $i -lt {TIMES} ]; do /usr/sbin/postconf -h mydestination || exit; i=$((i + 1)); done"
    return Row(
        ours=[bench.program("bench_read_parameter"), "mydestination", str(TIMES)],
        other=["/bin/sh", "-c", loop],
        goal=1.15,
    )

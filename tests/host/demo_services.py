"""The services: switching submission on and off, stopping and starting Postfix.

demo.py runs it on a host where all services run.
"""
import mailhost
import services


def status(demo, component, expected):
    """Checks a component's status, with some patience: after a start or a reload Postfix takes a moment
    to start the queue manager, and counts as stopped without it."""
    demo.tool("--status-service", f"--mail-component={component}", within=120,
              status=0, out=f"{component} is {expected}\n", err="")


def listening(demo, port, expected):
    def as_expected():
        return services.listens(port) == expected

    try:
        holds = mailhost.wait_until(as_expected)
    except AssertionError:
        holds = False
    demo.step(f"port {port}", "somebody listens" if services.listens(port) else "nobody listens", holds)


def submission(demo):
    demo.heading("message submission is switched on and off")
    services.panel_has_submission(True)
    demo.tool("--enable-message-submission", status=0, err="")
    listening(demo, 587, True)
    services.panel_has_submission(False)
    demo.tool("--disable-message-submission", status=0, err="")
    listening(demo, 587, False)


def stop_and_start(demo):
    demo.heading("Postfix is stopped and started")
    status(demo, "mta", "running")
    demo.tool("--stop-service", "--mail-component=mta", status=0, err="")
    listening(demo, 25, False)
    status(demo, "mta", "stopped")
    demo.tool("--start-service", "--mail-component=mta", status=0, err="")
    status(demo, "mta", "running")
    listening(demo, 25, True)


def chapters(demo):
    submission(demo)
    stop_and_start(demo)

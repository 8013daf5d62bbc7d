"""The service file: systemd understands it, and it shuts the daemon in."""

import os
import re
import subprocess

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: Exposure in tenths of systemd's points, of a hundred.
ENOUGH = 20


def analyze(*arguments):
    """The exit status and the output of systemd-analyze."""
    done = subprocess.run(["systemd-analyze", *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    return done.returncode, done.stdout


@pytest.fixture(name="service")
def service_file(tmp_path):
    """The file, for the daemon of this build."""
    with open(os.path.join(ROOT, "packaging", "systemd", "controllerd.service"), encoding="utf-8") as file:
        text = file.read()
    assert "ExecStart=/usr/bin/controllerd\n" in text
    path = tmp_path / "controllerd.service"
    daemon = os.path.join(os.environ["CCU_BUILD_DIR"], "daemon", "controllerd")
    path.write_text(text.replace("/usr/bin/controllerd", daemon))
    return path


def test_systemd_has_nothing_to_complain_of(service):
    assert analyze("verify", "--man=no", str(service)) == (0, "")


def test_an_attacker_gets_little(service):
    status, report = analyze("security", "--offline=true", f"--threshold={ENOUGH}", "--no-pager", str(service))
    assert status == 0, report


@pytest.mark.parametrize("line", ["Type=notify", "Restart=on-failure", "DeviceAllow=/dev/gpiochip4 rw",
                                  "DeviceAllow=/dev/fb0 r", "DeviceAllow=/dev/fb1 r", "DeviceAllow=char-input r",
                                  "DeviceAllow=char-alsa rw"])
def test_what_the_daemon_needs_it_has(service, line):
    assert line in service.read_text().splitlines()


def test_no_numbered_user_is_required(service):
    """By nothing: a drop-in for another user could add that one's service, but not take this one away."""
    text = service.read_text()
    assert not re.search(r"^(?!Wants=|After=)\w+=.*user@\d", text, re.MULTILINE)
    assert re.findall(r"^(\w+)=.*user@1000\.service\b", text, re.MULTILINE) == ["Wants", "After"]


@pytest.mark.parametrize("path", ["docs/integration.md", "packaging/man/controllerd.8"])
def test_the_documented_drop_in_names_the_user_as_the_service_does(service, path):
    """All that the service says of its user, and nothing else."""
    def keys(text):
        return re.findall(r"^(\w+)=.*(?:user@|user/)\d+", text, re.MULTILINE)

    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        assert keys(file.read()) == keys(service.read_text()) == ["Wants", "After", "Environment"]

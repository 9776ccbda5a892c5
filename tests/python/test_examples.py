"""The scripts in examples/ run end to end and print what they promise, so
that a newcomer's first contact with the library keeps working."""
import os
import subprocess
import sys

EXAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "examples")


def run(name):
    result = subprocess.run([sys.executable, os.path.join(EXAMPLES, name)], capture_output=True, text=True,
                            timeout=120, env=dict(os.environ))
    assert result.returncode == 0, result.stderr
    return result.stdout


def test_demo_reports_beliefs_and_a_refused_mistake():
    out = run("demo.py")
    assert "Beliefs for a smoker with an abnormal x-ray:" in out
    assert "A mistake is reported, not a crash: [-4]" in out


def test_umbrella_policy_follows_the_forecast():
    lines = run("umbrella.py").splitlines()
    policy = {line.split()[1]: line.split()[-1] for line in lines if line.strip().startswith("forecast")}
    assert policy == {"rainy": "take", "cloudy": "take", "sunny": "leave"}
    assert "With a cloudy forecast: take=77.00, leave=70.00" in lines


def test_files_and_sampling_round_trips_every_format():
    out = run("files_and_sampling.py")
    assert "alarm.bif: 37 nodes" in out
    assert out.count("read back with identical tables") == 4
    for line in out.splitlines():
        if "largest error" in line:
            assert float(line.split()[-1]) < 0.05, line


def test_troubleshooting_finds_the_planted_fault_without_repeating_a_check():
    out = run("troubleshooting.py")
    runs = [line for line in out.splitlines() if line.startswith("run ")]
    assert len(runs) == 24
    for line in runs:
        checks = line.split("checks: ")[1].split("; diagnosis")[0].split(", ")
        assert len(checks) == len(set(checks)), line
    found = sum(line.split("planted ")[1].split(";")[0] == line.split("diagnosis ")[1].split()[0] for line in runs)
    assert f"Found the planted fault in {found} of 24 runs" in out
    assert found >= 20

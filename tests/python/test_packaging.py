"""The type stubs are current, and pip builds a wheel that installs and
imports in a fresh virtual environment."""
import glob
import os
import subprocess
import sys

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


def test_stubs_are_current():
    run = subprocess.run([sys.executable, os.path.join(ROOT, "scripts", "gen_stubs.py"), "--check"],
                         capture_output=True, text=True)
    assert run.returncode == 0, run.stderr


def test_wheel_installs_into_a_fresh_environment(tmp_path):
    env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"}

    def run(*command, **kw):
        done = subprocess.run([str(c) for c in command], env=env, capture_output=True, text=True, **kw)
        assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
        return done.stdout

    run(sys.executable, "-m", "pip", "wheel", "--no-build-isolation", "--no-deps", "--no-index",
        "-w", tmp_path / "dist", ROOT)
    wheel, = glob.glob(str(tmp_path / "dist" / "pyquarn-*.whl"))
    run(sys.executable, "-m", "venv", "--system-site-packages", tmp_path / "venv")
    python = tmp_path / "venv" / "bin" / "python"
    run(python, "-m", "pip", "install", "--no-deps", "--no-index", wheel)
    out = run(python, "-c", "import os, pyquarn; d = os.path.dirname(pyquarn.__file__); n = pyquarn.Network(); "
              "n.add_node('A'); print(d, len(n), *sorted(f for f in os.listdir(d) if not f.endswith('.so')))",
              cwd=tmp_path)
    where, count, *files = out.split()
    assert where.startswith(str(tmp_path / "venv")) and count == "1"
    assert {"__init__.pyi", "learning.pyi", "py.typed", "frames.py"} <= set(files)

"""The installed module: `cmake --install` puts it below the prefix it is given, and it loads
the installed library from there, without the build tree or LD_LIBRARY_PATH."""

import os
import pathlib
import subprocess
import sys


def test_the_installed_module_loads_the_installed_library(build_dir, tmp_path):
    subprocess.run(["cmake", "--install", build_dir, "--prefix", str(tmp_path)], check=True, capture_output=True,
                   timeout=300)
    site = tmp_path / os.environ["TESSALY_PYTHON_INSTALL_DIR"]
    assert list(site.glob("tessaly.*.so"))
    environment = {key: value for key, value in os.environ.items() if key not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    environment["PYTHONPATH"] = str(site)
    code = ("import tessaly\n"
            "items = tessaly.CreateObject('Tessaly.LuxCollection')\n"
            "items.Add(1)\n"
            "print(items.Count)\n"
            "print(tessaly.__file__)\n"
            "print(next(line.split()[-1] for line in open('/proc/self/maps') if 'libTessalyCore' in line))\n")
    result = subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, text=True,
                            timeout=120, cwd=tmp_path)
    assert result.returncode == 0, result.stderr
    count, module, library = result.stdout.split()
    assert count == "1"
    assert pathlib.Path(module).parent == site
    assert pathlib.Path(library).resolve().is_relative_to(tmp_path.resolve())

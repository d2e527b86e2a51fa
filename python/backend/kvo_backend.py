"""Builds the wheel of the package kvo by CMake: the interface of PEP 517, for pip and others.

The wheel holds the libraries, too, so it works beside or without the Debian packages. A build tree that has the package saves the
compilation, and is taken as it is: ``pip install . --config-settings=build-dir=build/release``.
"""

import base64
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile

_SOURCE = pathlib.Path(__file__).resolve().parents[2]
_LIBRARIES = ("libKVOPlatform", "libKVOMtxLinearAlgebra", "libKVOMtxModes")


def _version():
    return re.search(r"project\(KVOMtxLinearAlgebra VERSION ([0-9.]+)", (_SOURCE / "CMakeLists.txt").read_text())[1]


def _tag():
    machine = os.uname().machine
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    return f"{python}-{python}-linux_{machine}"


def _run(*command):
    subprocess.run([str(word) for word in command], check=True)


def _installed(build, prefix):
    """Installs the components that the package needs, and builds them where there are none."""
    if (build / "CMakeCache.txt").exists():
        if not (build / "python" / "cmake_install.cmake").exists():  # configured before what the package needs was installed
            _run("cmake", "-DKVO_BUILD_PYTHON=ON", build)
    else:
        settings = ["CMAKE_BUILD_TYPE=Release", "KVO_BUILD_PYTHON=ON", "KVO_BUILD_TESTS=OFF", "KVO_BUILD_TOOLS=OFF", "KVO_BUILD_EXAMPLES=OFF"]
        settings.append(f"KVO_PYTHON={sys.executable}")
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        _run("cmake", "-S", _SOURCE, "-B", build, *generator, *(f"-D{setting}" for setting in settings))
    # Programs that run from a tree would see its libraries half written.
    if not any((build / "python/kvo").glob("_core*.so")):
        _run("cmake", "--build", build, "--target", "kvo_python", "--parallel", os.cpu_count() or 1)
    for component in ("runtime", "modes", "python"):
        _run("cmake", "--install", build, "--prefix", prefix, "--component", component, "--strip")


def _wheel_contents(prefix):
    """The files of the wheel by their names in it. The libraries lie where the run path of the extension leads: see python/CMakeLists.txt."""
    package = next(prefix.rglob("kvo/__init__.py")).parent
    contents = {f"kvo/{path.name}": path for path in package.iterdir()}
    for library in _LIBRARIES:
        path = next(path for path in prefix.rglob(f"{library}.so.*") if path.is_symlink())  # what the loader asks for
        contents[f"kvo/libraries/{path.name}"] = path
    return contents


def _metadata():
    lines = ["Metadata-Version: 2.1", "Name: kvo", f"Version: {_version()}", "Requires-Python: >=3.9", "Requires-Dist: numpy", "Requires-Dist: scipy"]
    lines += ["Summary: Matrices and natural modes of finite-element models", ""]
    return "\n".join(lines)


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    with tempfile.TemporaryDirectory() as folder:
        work = pathlib.Path(folder)
        given = (config_settings or {}).get("build-dir")
        build = (_SOURCE / given) if given else work / "build"
        _installed(build, work / "prefix")
        info = f"kvo-{_version()}.dist-info"
        name = f"kvo-{_version()}-{_tag()}.whl"
        record = []
        with zipfile.ZipFile(pathlib.Path(wheel_directory) / name, "w", zipfile.ZIP_DEFLATED) as wheel:

            def add(path, content):
                digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
                record.append(f"{path},sha256={digest},{len(content)}")
                wheel.writestr(path, content)

            for path, file in sorted(_wheel_contents(work / "prefix").items()):
                add(path, file.read_bytes())
            add(f"{info}/METADATA", _metadata().encode())
            add(f"{info}/WHEEL", f"Wheel-Version: 1.0\nGenerator: kvo_backend\nRoot-Is-Purelib: false\nTag: {_tag()}\n".encode())
            wheel.writestr(f"{info}/RECORD", "\n".join(record + [f"{info}/RECORD,,", ""]))
        return name


def build_sdist(sdist_directory, config_settings=None):
    raise NotImplementedError("the package is built from a checkout; there is no source distribution")

# Spack: copy this folder to repos/REPOSITORY/packages/kvomtxlinearalgebra of a repository of your own and put the source archive into a mirror, or beside
# it under the name that "url" gives. The archive: cpack --config build/release/CPackSourceConfig.cmake.
import os

from spack.package import *


class Kvomtxlinearalgebra(CMakePackage):
    """Matrix linear algebra for finite-element solvers: dense and sparse matrices in memory and out of core in a simulation database,
    natural modes, a Fortran layer over BLAS and LAPACK, and the companion program kvomtx."""

    url = "file://{0}/kvomtxlinearalgebra-1.1.0.tar.xz".format(os.path.dirname(os.path.abspath(__file__)))

    version("1.1.0")  # its checksum is that of the archive you made: spack checksum kvomtxlinearalgebra
    # The licence stands in LICENSE; its owner has not chosen one yet.

    variant("tools", default=True, description="Build the companion program kvomtx")
    variant("python", default=False, description="Build the Python package kvo")

    depends_on("c", type="build")
    depends_on("cxx", type="build")
    depends_on("fortran", type="build")
    conflicts("%gcc@:11", msg="g++ 12 is the least")
    conflicts("%clang@:13", msg="Clang 14 is the least")

    # Compiled in: packaging/build-parts.sh makes archives of them that can be linked into a shared library, which Spack's are not.
    resource(
        name="blis",
        url="https://github.com/flame/blis/archive/0.9.0.tar.gz",
        sha256="1135f664be7355427b91025075562805cdc6cc730d3173f83533b2c5dcc2f308",
        placement="parts/blis",
    )
    resource(
        name="scotch",
        url="https://gitlab.inria.fr/scotch/scotch/-/archive/v7.0.3/scotch-v7.0.3.tar.gz",
        sha256="5b5351f0ffd6fcae9ae7eafeccaa5a25602845b9ffd1afb104db932dd4d4f3c5",
        placement="parts/scotch",
    )
    resource(
        name="mumps",
        url="https://mumps-solver.org/MUMPS_5.5.1.tar.gz",
        sha256="1abff294fa47ee4cfd50dfd5c595942b72ebfcedce08142a75a99ab35014fa15",
        placement="parts/mumps",
    )

    depends_on("cmake@3.25:", type="build")
    depends_on("ninja", type="build")
    depends_on("gmake", type="build")
    depends_on("flex", type="build")
    depends_on("bison@3.4:", type="build")
    depends_on("pkgconfig", type="build")
    generator("ninja")

    depends_on("blas")
    depends_on("lapack")
    depends_on("hdf5~mpi+shared")
    depends_on("metis@5.1:+shared~int64~real64")
    depends_on("libzip")
    depends_on("zlib-api")
    depends_on("zstd")
    with when("+tools"):
        depends_on("cli11@2.1:")
        depends_on("nlohmann-json@3.11:")
        depends_on("cairo+png+svg")
        depends_on("pango")
        depends_on("fontconfig")
        depends_on("openssl@3:")
    with when("+python"):
        depends_on("python@3.9:", type=("build", "link", "run"))
        depends_on("py-pybind11@2.10:", type="build")
        depends_on("py-numpy", type=("build", "run"))
        depends_on("py-scipy", type=("build", "run"))

    @run_before("cmake")
    def build_parts(self):
        parts = join_path(self.stage.source_path, "parts")
        script = Executable(join_path(self.stage.source_path, "packaging", "build-parts.sh"))
        script.add_default_env("CPATH", self.spec["metis"].prefix.include)
        script(join_path(parts, "built"), *(join_path(parts, name) for name in ("blis", "scotch", "mumps")))

    def cmake_args(self):
        parts = join_path(self.stage.source_path, "parts", "built")
        args = [
            self.define("KVO_BUILD_TESTS", False),
            self.define("KVO_BUILD_EXAMPLES", False),
            self.define_from_variant("KVO_BUILD_TOOLS", "tools"),
            self.define_from_variant("KVO_BUILD_PYTHON", "python"),
            self.define("CMAKE_LIBRARY_PATH", join_path(parts, "lib")),
            self.define("CMAKE_INCLUDE_PATH", join_path(parts, "include")),
            self.define("BLAS_LIBRARIES", self.spec["blas"].libs.joined(";")),
            self.define("LAPACK_LIBRARIES", self.spec["lapack"].libs.joined(";")),
        ]
        if self.spec.satisfies("+python"):
            args.append(self.define("KVO_PYTHON", self.spec["python"].command.path))
            args.append(self.define("KVO_PYTHON_INSTALL_DIR", python_platlib))
        return args

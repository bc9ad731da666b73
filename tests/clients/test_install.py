"""What `cmake --install` lays down for the programs in clients/."""

import os
import subprocess
from pathlib import Path

BUILD = Path(os.environ["LODESTARD_BUILD"])


def test_the_bus_starts_the_installed_dialog_service(tmp_path):
    cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8").splitlines()
    (prefix,) = [line.split("=", 1)[1] for line in cache if line.startswith("CMAKE_INSTALL_PREFIX:")]
    subprocess.run(["cmake", "-P", BUILD / "clients/lodestar-dialogs/cmake_install.cmake"], check=True,
                   env={**os.environ, "DESTDIR": str(tmp_path)}, stdout=subprocess.DEVNULL)
    installed = Path(f"{tmp_path}{prefix}")
    assert os.access(installed / "bin/lodestar-dialogs", os.X_OK)
    service = (installed / "share/dbus-1/services/com.varn.location.ui.service").read_text(encoding="utf-8")
    assert service.splitlines() == ["[D-BUS Service]", "Name=com.varn.location.ui",
                                    f"Exec={prefix}/bin/lodestar-dialogs"]

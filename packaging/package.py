#!/usr/bin/env python3
"""Puts what the builds have made into packages, with check sums beside them: equal inputs give equal packages, byte for byte.

package.py VERSION TIME BUILD OUTPUT ZIG: TIME is the commit's, in seconds, and goes into every archive; BUILD holds a folder for
each preset; OUTPUT is emptied first; ZIG is the folder whose libraries the arm64 module links."""

import gzip
import hashlib
import io
import json
import os
import shutil
import subprocess
import sys
import tarfile
import tempfile
import time
import zipfile

version, seconds, build, output, zig = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4], sys.argv[5]
source = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
stamp = time.gmtime(seconds)


def read(path):
    with open(path, "rb") as file:
        return file.read()


def here(path):
    return read(os.path.join(source, path))


def stripped(path, tool):
    """A program without its symbols."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([tool, "--strip-all", "-o", f"{folder}/program", path], check=True)
        return read(f"{folder}/program")


def debian(package):
    return subprocess.run(["dpkg-query", "-W", "-f=${Version}", package], check=True, capture_output=True, text=True).stdout


def linked_code(architecture):
    """What is linked into the module beside its own code: (name, version, SPDX licence, file name, text)."""
    if architecture == "arm64":
        zig_version = subprocess.run([f"{zig}/zig", "version"], check=True, capture_output=True, text=True).stdout.strip()
        llvm = "Apache-2.0 WITH LLVM-exception"
        return [("LLVM libc++, libc++abi, libunwind and compiler-rt", f"16.0.6 (Zig {zig_version})", llvm, "llvm.txt",
                 read(f"{zig}/lib/libcxx/LICENSE.TXT")),
                ("MinGW-w64 runtime", f"Zig {zig_version}", "ZPL-2.1", "mingw-w64.txt", read(f"{zig}/lib/libc/mingw/COPYING")),
                ("Zig", zig_version, "MIT", "zig.txt", read(f"{zig}/LICENSE"))]
    gnu = {"x64": "x86-64", "x86": "i686"}[architecture]
    return [("GCC runtime libraries", debian(f"g++-mingw-w64-{gnu}-posix"), "GPL-3.0-or-later WITH GCC-exception-3.1",
             "gcc-runtime.txt", read(f"/usr/share/doc/g++-mingw-w64-{gnu}-posix/copyright")
             + b"\n" + read("/usr/share/common-licenses/GPL-3")),
            ("MinGW-w64 runtime and winpthreads", debian(f"mingw-w64-{gnu}-dev"), "ZPL-2.1 AND MIT",
             "mingw-w64-and-winpthreads.txt", read(f"/usr/share/doc/mingw-w64-{gnu}-dev/copyright"))]


def bill(name, module, components):
    """The bill of materials of a module, as SPDX 2.3."""
    def package(number, title, number_of_version, licence):
        return {"SPDXID": f"SPDXRef-Package-{number}", "name": title, "versionInfo": number_of_version,
                "downloadLocation": "NOASSERTION", "filesAnalyzed": False, "licenseConcluded": licence,
                "licenseDeclared": licence, "copyrightText": "NOASSERTION"}
    own = package(0, "velomira", version, "NOASSERTION")
    own["checksums"] = [{"algorithm": "SHA256", "checksumValue": hashlib.sha256(module).hexdigest()}]
    own["packageFileName"] = "bin/velomira.dll"
    packages = [own] + [package(i + 1, *component[:3]) for i, component in enumerate(components)]
    relations = [{"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES", "relatedSpdxElement": "SPDXRef-Package-0"}]
    relations += [{"spdxElementId": "SPDXRef-Package-0", "relationshipType": "STATIC_LINK",
                   "relatedSpdxElement": each["SPDXID"]} for each in packages[1:]]
    document = {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": name,
                "documentNamespace": f"urn:velomira:{name}:{hashlib.sha256(module).hexdigest()}",
                "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ", stamp), "creators": ["Tool: velomira-package"]},
                "packages": packages, "relationships": relations}
    return (json.dumps(document, indent=2) + "\n").encode()


def module_package(architecture):
    folder = f"{build}/windows-{architecture}"
    components = linked_code(architecture)
    module = read(f"{folder}/bin/velomira.dll")
    name = f"velomira-{version}-windows-{architecture}"
    config = here("packaging/velomira-config-version.cmake.in").decode()
    config = config.replace("@VERSION@", version).replace("@MAJOR@", version.split(".")[0])
    files = {"bin/velomira.dll": module, "bin/velomira.pdb": read(f"{folder}/bin/velomira.pdb"),
             "lib/velomira.lib": read(f"{folder}/src/velomira.lib"), "include/velomira.h": here("src/frame/velomira.h"),
             "lib/cmake/velomira/velomira-config.cmake": here("packaging/velomira-config.cmake"),
             "lib/cmake/velomira/velomira-config-version.cmake": config.encode(),
             "example/example.c": here("packaging/example.c"), "README.md": here("packaging/README.md"),
             "docs/guest.md": here("docs/guest.md"), "CHANGELOG.md": here("CHANGELOG.md"),
             "sbom.spdx.json": bill(name, module, components)}
    files.update({f"licenses/{component[3]}": component[4] for component in components})
    return name, files


def catalogue():
    folder = os.path.join(source, "examples/catalogue")
    return {f"catalogue/{name}": read(os.path.join(folder, name)) for name in os.listdir(folder)
            if name.endswith((".json", ".png"))}


def windows_tools():
    folder = f"{build}/windows-x64/bin"
    files = {name: stripped(f"{folder}/{name}", "llvm-strip")
             for name in ("velomira-host.exe", "shell_view.exe", "velomira_deaths.exe", "vel_micro_app.exe", "velomira.dll")}
    files["tsr_tg.sys"] = read(f"{folder}/tsr_tg.sys")
    return f"velomira-{version}-tools-windows-x64", files | catalogue() | tool_papers()


def linux_tools():
    folder = f"{build}/native-release/bin"
    files = {name: stripped(f"{folder}/{name}", "strip")
             for name in ("velomira-host", "velomira-trials", "libvelomira.so", "libplatform.so")}
    files["vel_micro_app.exe"] = read(f"{folder}/vel_micro_app.exe")
    return f"velomira-{version}-tools-linux-x64", files | catalogue() | tool_papers()


def tool_papers():
    licenses = {f"licenses/{name}.txt": read(f"/usr/share/doc/{package}/copyright") for name, package in
                (("cli11", "libcli11-dev"), ("nlohmann-json", "nlohmann-json3-dev"), ("stb", "libstb-dev"))}
    licenses |= {f"licenses/{component[3]}": component[4] for component in linked_code("x64")}
    return licenses | {"README.md": here("packaging/tools.md"), "docs/guest.md": here("docs/guest.md"), "CHANGELOG.md": here("CHANGELOG.md")}


def is_program(name):
    return not name.endswith((".md", ".txt", ".json", ".png", ".h", ".c", ".cmake", ".lib", ".pdb"))


def write_zip(name, files):
    path = f"{output}/{name}.zip"
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for entry in sorted(files):
            info = zipfile.ZipInfo(f"{name}/{entry}", stamp[:6])
            info.compress_type = zipfile.ZIP_DEFLATED
            info.external_attr = (0o755 if is_program(entry) else 0o644) << 16
            archive.writestr(info, files[entry])
    return path


def write_tar(name, files):
    path = f"{output}/{name}.tar.gz"
    with open(path, "wb") as file, gzip.GzipFile("", "wb", fileobj=file, mtime=seconds) as packed, \
            tarfile.open(fileobj=packed, mode="w", format=tarfile.USTAR_FORMAT) as archive:
        for entry in sorted(files):
            info = tarfile.TarInfo(f"{name}/{entry}")
            info.size, info.mtime, info.mode = len(files[entry]), seconds, 0o755 if is_program(entry) else 0o644
            archive.addfile(info, io.BytesIO(files[entry]))
    return path


def main():
    shutil.rmtree(output, ignore_errors=True)
    os.makedirs(output)
    paths = [write_zip(*module_package(architecture)) for architecture in ("x64", "x86", "arm64")]
    paths += [write_zip(*windows_tools()), write_tar(*linux_tools())]
    sums = {os.path.basename(path): hashlib.sha256(read(path)).hexdigest() for path in paths}
    with open(f"{output}/SHA256SUMS", "w", encoding="ascii") as file:
        file.writelines(f"{digest}  {name}\n" for name, digest in sorted(sums.items()))
    for name, digest in sorted(sums.items()):
        print(f"{os.path.getsize(f'{output}/{name}'):>9}  {digest[:16]}...  {name}")


main()

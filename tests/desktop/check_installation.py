# SPDX-License-Identifier: MIT
"""Checks that what `cmake --install` installs is complete and consistent.

Installs into a temporary folder and examines the result as the desktop, the shells and a reader
would.

usage: check_installation.py SOURCE_FOLDER BUILD_FOLDER PREFIX LIBRARY_FOLDER
"""

import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # the sources may be read-only

from check_desktop_entry import refusals  # noqa: E402

APPLICATION = "com.vantrel.korvel.RecordAudio"

problems = []


def run(*command, **options):
    return subprocess.run(command, capture_output=True, encoding="utf-8", check=False,
                          timeout=120, **options)


def expect(condition, problem):
    if not condition:
        problems.append(problem)


def expect_success(*command):
    result = run(*command)
    expect(result.returncode == 0, f"{command[0]}: {result.stdout}{result.stderr}")


def installed_files(root, prefix, library_folder):
    """Paths as in installed_files.txt, with {prefix} and {lib} for the configured folders."""
    lines = []
    for path in sorted(root.rglob("*")):
        if path.is_dir():
            continue
        name = "/" + str(path.relative_to(root))
        if name.startswith(prefix + "/"):
            name = "{prefix}" + name[len(prefix):].replace(f"/{library_folder}/", "/{lib}/")
        lines.append(name)
    return sorted(lines)


def check_list(source, found):
    wanted = sorted((source / "tests/desktop/installed_files.txt").read_text().split())
    for name in sorted(set(wanted) - set(found)):
        problems.append(f"not installed: {name}")
    for name in sorted(set(found) - set(wanted)):
        problems.append(f"installed, but not expected: {name}")


def libraries_of(program):
    """Returns the libraries that the file links to or opens by name, without the interface number,
    which differs between releases of the system."""
    return {name.decode() for name in
            re.findall(rb"\b(lib[A-Za-z0-9_+.-]+\.so)\.[0-9]+\b", program.read_bytes())}


def check_third_party(source, root):
    """Checks that docs/third-party.md lists the libraries of all installed files, and no others."""
    listed = set(re.findall(r"^\| `([^`]+)`", (source / "docs/third-party.md").read_text(),
                            re.MULTILINE))
    used = {}
    for path in root.rglob("*"):
        if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF":
            for library in libraries_of(path):
                used.setdefault(library, path.name)
    # Only builds for tests use the sanitizers' libraries.
    used = {name: by for name, by in used.items() if not re.match(r"lib(a|t|ub)san\.so", name)}
    for name in sorted(set(used) - listed):
        problems.append(f"docs/third-party.md does not list {name}, which {used[name]} uses")
    for name in sorted(listed - set(used)):
        problems.append(f"docs/third-party.md lists {name}, which nothing uses")


def check_toolkits(library_folder):
    """Checks that the windows for one desktop need nothing of the other's toolkit."""
    for module, own, foreign in (("record-audio-windows-gtk.so", "libadwaita", "libQt"),
                                 ("record-audio-windows.so", "libQt", "libadwaita|libgtk")):
        needed = run("ldd", library_folder / "record-audio" / module).stdout
        expect(own in needed, f"ldd says of {module}: {needed}")
        found = re.findall(rf"\b(?:{foreign})\S*", needed)
        expect(not found, f"{module} needs {found}")


def check_desktop_files(share, prefix):
    problems.extend(refusals(share / f"applications/{APPLICATION}.desktop"))
    expect_success("appstreamcli", "validate", "--no-net",
                   share / f"metainfo/{APPLICATION}.metainfo.xml")
    service = (share / f"dbus-1/services/{APPLICATION}.service").read_text()
    expect(f"Name={APPLICATION}\n" in service, "the bus service has another name")
    expect(f"Exec={prefix}/bin/record-audio " in service, f"the bus service starts {service}")


def check_program(root, prefix, options):
    program = root / prefix[1:] / "bin/record-audio"
    version = run(program, "--version").stdout
    expect(re.fullmatch(r"record-audio \d+\.\d+\.\d+\n", version), f"--version says {version!r}")
    status = run(program, "--status", env={"XDG_RUNTIME_DIR": str(root), "HOME": str(root)})
    expect(status.returncode == 3, f"--status without an instance ends with {status.returncode}")
    help_text = run(program, "--help").stdout
    options += re.findall(r"^  (--[a-z]+) ", help_text, re.M)
    expect(len(options) >= 5, f"--help has only {options}")
    return version.split()[-1]


def check_manual(page, version, options):
    rendered = run("man", "--warnings", "--local-file", page,
                   env={"LC_ALL": "C.UTF-8", "MANWIDTH": "100", "PATH": "/usr/bin:/bin"})
    expect(rendered.returncode == 0 and not rendered.stderr, f"man: {rendered.stderr}")
    text = rendered.stdout.replace("\u2010", "-")
    expect(f"Record Audio {version}" in text, f"the manual is not of version {version}")
    for option in options:
        expect(re.search(rf"^\s+{option}(\s|$)", text, re.M), f"the manual lacks {option}")


def check_completions(share, options):
    bash = share / "bash-completion/completions/record-audio"
    script = f"""source {bash}; COMP_WORDS=(record-audio --); COMP_CWORD=1; _record_audio
        printf '%s\\n' "${{COMPREPLY[@]}}" """
    offered = run("bash", "-c", script).stdout.split()
    expect(sorted(offered) == sorted(options), f"bash offers {offered}")
    script = f"""source {bash}; COMP_WORDS=(record-audio --st); COMP_CWORD=1; _record_audio
        printf '%s\\n' "${{COMPREPLY[@]}}" """
    expect(run("bash", "-c", script).stdout.split() == ["--stop", "--status"],
           "bash does not complete --st to --stop and --status")

    fish = share / "fish/vendor_completions.d/record-audio.fish"
    offered = run("fish", "--no-config", "-c",
                  f"source {fish}; complete -C 'record-audio --'").stdout
    expect(sorted(re.findall(r"^(--[a-z]+)\t", offered, re.M)) == sorted(options),
           f"fish offers {offered}")

    zsh = share / "zsh/vendor-completions/_record-audio"
    expect(run("zsh", "-n", zsh).returncode == 0, "zsh cannot read its completion")
    text = zsh.read_text()
    expect(text.startswith("#compdef record-audio\n"), "zsh does not take its completion up")
    expect(sorted(re.findall(r"\)(--[a-z]+)\[", text)) == sorted(options), "zsh offers other options")


def main():
    source, build = pathlib.Path(sys.argv[1]), sys.argv[2]
    prefix, library_folder = sys.argv[3], sys.argv[4]
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        result = run("cmake", "--install", build, env={"DESTDIR": folder, "PATH": "/usr/bin:/bin"})
        expect(result.returncode == 0, f"cmake --install: {result.stderr}")
        check_list(source, installed_files(root, prefix, library_folder))
        if not problems:
            share = root / prefix[1:] / "share"
            options = []
            version = check_program(root, prefix, options)
            check_desktop_files(share, prefix)
            check_manual(share / "man/man1/record-audio.1", version, options)
            check_completions(share, options)
            check_third_party(source, root)
            check_toolkits(root / prefix[1:] / library_folder)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

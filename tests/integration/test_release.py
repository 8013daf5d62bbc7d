"""What stands between a tree and its release: `ccu release` on copies of this tree that lack something."""

import os
import shutil
import subprocess

import pytest

from tests.integration.built_packages import ROOT

GIT = {"GIT_AUTHOR_NAME": "Some", "GIT_AUTHOR_EMAIL": "some@some.example", "GIT_COMMITTER_NAME": "Some",
       "GIT_COMMITTER_EMAIL": "some@some.example", "GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null"}


class Repository:
    """What a release looks at, committed, in a repository of its own."""

    def __init__(self, folder):
        self.folder = folder
        for name in ("packaging", "docs"):
            shutil.copytree(os.path.join(ROOT, name), folder / name)
        (folder / "controller_client").mkdir()
        for name in ("ccu", "controller_client/CMakeLists.txt"):
            shutil.copy(os.path.join(ROOT, name), folder / name)
        self.git("init", "--quiet")
        self.commit()

    def git(self, *arguments):
        """Runs git."""
        subprocess.run(["git", *arguments], cwd=self.folder, env={**os.environ, **GIT}, check=True)

    def commit(self):
        """Commits all."""
        self.git("add", "--all")
        self.git("commit", "--quiet", "--message", "State")

    def change(self, path, before, after):
        """Changes a text that a file has."""
        text = (self.folder / path).read_text(encoding="utf-8")
        assert before in text
        (self.folder / path).write_text(text.replace(before, after, 1), encoding="utf-8")

    def stand_in(self, path):
        """Puts a script in the place of what a release runs: it notes its call, and fails when it is $BROKEN."""
        (self.folder / path).parent.mkdir(exist_ok=True)
        (self.folder / path).write_text(f'#!/bin/sh\ncall="{path} $*"\necho "${{call% }}" >>{self.folder}.done\n'
                                        '[ "${call% }" != "$BROKEN" ]\n')
        (self.folder / path).chmod(0o755)

    def release(self):
        """The status of a trial, the points that are not met, and what would be done."""
        done = subprocess.run([self.folder / "ccu", "release", "--dry-run"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True, check=False, env={**os.environ, **GIT})
        lines = done.stdout.splitlines()
        assert lines[0].startswith("Release ")
        orders = [line[2:] for line in lines if line.startswith("+ ")]
        return done.returncode, [line for line in lines[1:] if not line.endswith(": ok") and line[:2] != "+ "], orders


@pytest.fixture(name="repository")
def repository_fixture(tmp_path):
    """One that can be released."""
    return Repository(tmp_path / "tree")


def test_a_tree_that_is_whole_can_be_released(repository):
    """All is tested and made for each architecture, and then it gets its name."""
    repository.git("tag", "v1.0.0")
    status, wrong, orders = repository.release()
    assert (status, wrong) == (0, [])
    assert orders == [".ci/run", "./ccu package", "packaging/check-reproducible", "./ccu test root", "./ccu test arm64",
                      "./ccu package --arch arm64", "./ccu test armhf", "./ccu package --arch armhf",
                      "git tag --annotate v1.1.0 --message Release 1.1.0"]


@pytest.mark.parametrize("broken, done", [("", 8), ("ccu test armhf", 7), ("packaging/check-reproducible", 3)])
def test_a_release_gets_its_name_when_all_else_is_done(repository, broken, done):
    """Nothing is done after what fails."""
    for path in (".ci/run", "ccu", "packaging/check-reproducible"):
        repository.stand_in(path)
    repository.commit()
    orders = [".ci/run", "ccu package", "packaging/check-reproducible", "ccu test root", "ccu test arm64",
              "ccu package --arch arm64", "ccu test armhf", "ccu package --arch armhf"]
    status = subprocess.run([repository.folder / "packaging" / "release"], stdout=subprocess.DEVNULL, check=False,
                            env={**os.environ, **GIT, "BROKEN": broken}).returncode
    with open(f"{repository.folder}.done", encoding="utf-8") as file:
        assert file.read().splitlines() == orders[:done]
    tags = subprocess.run(["git", "tag"], cwd=repository.folder, stdout=subprocess.PIPE, text=True, check=True).stdout
    assert (status == 0, tags) == ((False, "") if broken else (True, "v1.1.0\n"))


@pytest.mark.parametrize("path, before, after, point", [
    ("packaging/debian/changelog", ") stable;", ") UNRELEASED;",
     "the changelog's first entry is for a release: it is UNRELEASED"),
    ("packaging/man/controllerd.8", "controllerd 1.1.0", "controllerd 1.0.0",
     "controllerd.8 is of this version: it names another"),
    ("docs/integration.md", "controllerd_1.1.0_", "controllerd_1.0.0_",
     "docs name the packages of this version: docs/integration.md:"),
    ("packaging/debian/libcontroller-client1.symbols", " 1.1.0", " 1.0.9",
     "the library's symbols are known up to 1.1.0: its last is another")])
def test_what_is_of_another_version_keeps_it_from_being_released(repository, path, before, after, point):
    repository.change(path, before, after)
    repository.commit()
    status, wrong, orders = repository.release()
    assert (status, orders) == (1, []) and len(wrong) == 1 and wrong[0].startswith(point)


@pytest.mark.parametrize("tag, point", [
    ("v1.1.0", ["the version is a new one: v1.1.0 is there already",
                "it comes after the last one: v1.1.0 is not before 1.1.0"]),
    ("v1.2.0", ["it comes after the last one: v1.2.0 is not before 1.1.0"])])
def test_a_version_that_was_there_is_not_released_again(repository, tag, point):
    repository.git("tag", tag)
    assert repository.release() == (1, point, [])


def test_what_is_not_committed_is_not_released(repository):
    (repository.folder / "docs" / "new.md").touch()
    assert repository.release() == (1, ["all is committed: ?? docs/new.md"], [])


@pytest.mark.parametrize("what, status, said", [
    ("the very same", 0, ""), ("$PWD", 1, "some-dbgsym_1_all.deb {folder}/build/packages/some-dbgsym_1_all.deb differ")])
def test_packages_of_another_folder_are_compared(repository, what, status, said):
    """Those of this one with what is committed, by a build that puts one thing into all of them."""
    (repository.folder / "ccu").write_text(
        '#!/bin/sh\nmkdir -p build/packages\n'
        f'for name in some some-dbgsym; do echo "{what}" >build/packages/$name"_1_all.deb"; done\n')
    (repository.folder / ".gitignore").write_text("/build/\n")
    repository.commit()
    subprocess.run("./ccu", cwd=repository.folder, check=True)
    done = subprocess.run([repository.folder / "packaging" / "check-reproducible"], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, env={**os.environ, **GIT})
    assert done.returncode == status and said.format(folder=repository.folder) in done.stdout

"""The stand-ins' binary interfaces: a controller's own library with these symbols can take their place."""

import subprocess


def exported_functions(library):
    output = subprocess.run(["nm", "--dynamic", "--defined-only", library], check=True, capture_output=True,
                            text=True).stdout
    return {line.split()[2] for line in output.splitlines() if line.split()[1] == "T"}


def soname(library):
    output = subprocess.run(["readelf", "--dynamic", library], check=True, capture_output=True, text=True).stdout
    return [line.split("[")[1].rstrip("]") for line in output.splitlines() if "(SONAME)" in line]


def test_tag_memory_exports_its_six_operations_and_no_more(libraries):
    assert exported_functions(libraries / "libTagMemory.so") == {
        "_ZN9TagMemory4OpenEv",
        "_ZN9TagMemory4ReadEtmPh",
        "_ZN9TagMemory5WriteEtmPKh",
        "_ZN9TagMemory7RegSyncEmPK16HdrOperandData_thh",
        "_ZN9TagMemory9UnRegSyncEmh",
        "_ZN9TagMemory28OperandAddr2OffsetConversionEm",
    }


def test_proof_runner_exports_its_three_operations_and_no_more(libraries):
    assert exported_functions(libraries / "libProofRunner.so") == {
        "_ZN11ProofRunner12InitAutoTestEPKcS1_",
        "_ZN11ProofRunner12ReportOnTestEPKcS1_b",
        "_ZN11ProofRunner12PrintSummaryEv",
    }


def test_the_libraries_are_found_by_their_plain_names(libraries):
    for name in ("libTagMemory.so", "libProofRunner.so"):
        assert soname(libraries / name) == [name]

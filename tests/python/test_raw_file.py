"""Raw data files: every number where the text has it, memory that outlives its file."""
import gc
import re

import numpy as np
import pytest

import butngain


def test_readings_are_the_numbers_of_the_text(raw_path):
    file = butngain.read_raw(raw_path)
    assert (file.bunches, file.turns, file.names) == (2, 300, ["12W", "13W"])
    # Data lines: timing block, phase word, four readings in the order of the cards TI BI BO TO.
    data = np.array([[int(word) for word in line.split()[2:]]
                     for line in raw_path.read_text().splitlines()
                     if re.fullmatch(r"[01] +[0-9a-f]{7}( +-?\d+){4} *", line)])
    assert data.shape == (1200, 4), "the test finds no data lines"
    bpm = file["13W"]
    for column, button in enumerate((2, 0, 1, 3)):
        assert bpm.readings[button].shape == (2, 300)
        np.testing.assert_array_equal(bpm.readings[button].ravel(), data[-600:, column])


def test_corrected_signals_and_positions_follow_from_the_headers(raw_path):
    bpm = butngain.read_raw(str(raw_path))["12W"]
    b = [bpm.corrected[k].astype(float) for k in range(4)]
    for k in range(4):
        for bunch, block in enumerate(bpm.blocks):
            expected = ((bpm.readings[k][bunch] - bpm.pedestal[block, k])
                        / bpm.gain_coefficient[block, k])
            np.testing.assert_allclose(b[k][bunch], expected, rtol=1e-6)
    s = sum(b)
    np.testing.assert_allclose(bpm.x, (b[3] + b[1] - b[0] - b[2]) / s * bpm.horizontal_coefficient,
                               rtol=1e-4, atol=1e-5)
    np.testing.assert_array_equal(bpm.signals(1), np.stack([a[1] for a in b], axis=1))
    assert (bpm.phase_x >= 0).all() and (bpm.phase_x < 512).all()


def test_arrays_are_views_that_keep_their_memory(raw_path):
    file = butngain.read_raw(raw_path)
    first = file["12W"].readings[0]
    assert first.base is not None and not first.flags.owndata and not first.flags.writeable
    assert np.shares_memory(first, file["12W"].readings[0])
    kept = first.copy()
    del file
    gc.collect()
    others = [butngain.read_raw(raw_path) for _ in range(3)]  # would use freed memory again
    np.testing.assert_array_equal(first, kept)
    with pytest.raises(ValueError):
        first[0, 0] = 1
    assert len(others) == 3


def test_faults_name_what_is_wrong(raw_path, tmp_path):
    with pytest.raises(butngain.Error, match="nowhere.dat: No such file"):
        butngain.read_raw(tmp_path / "nowhere.dat")
    file = butngain.read_raw(raw_path)
    with pytest.raises(KeyError, match="99W"):
        file["99W"]
    with pytest.raises(ValueError, match="bunch: 2"):
        file["12W"].signals(2)


def test_headers_are_those_of_the_text(raw_path, tmp_path):
    # Every value its own, so that none can stand for another. Cards in the order TI BI BO TO.
    lines = {
        "BPM_hostname": ("host", "kbpm9"), "BPM_IP_Address": ("ip_address", "10.1.2.3"),
        "Detector_Type": ("detector_type", "plate"), "EXE_Name": ("loader", "boot7"),
        "Timing_Setup": ("timing_setup", "4ns_OTHER"), "Trigger": ("trigger", "OUTSIDE"),
        "EXE_Build_ID": ("build_time", 20150607), "Turn_sync_counter": ("turn_counter", 77),
        "Turn_spacing": ("turn_spacing", 5), "Bunch_Pat_offsets": ("bunch_pattern_offset", [6, 7]),
        "Com_Turnmrk_Dly": ("common_turn_delay", 9), "Blk_Turnmrk_Dlys": ("turn_delay", [21, 22]),
        "Block_Delays": ("block_delay", [23, 24]), "Digital_Temp_C": ("board_temperature", 41.5),
        "Front-End_FPGAs": ("fpga_id", [11, 12, 13, 14]),
        "Card_Temps_C": ("card_temperature", [30.5, 31.5, 32.5, 33.5]),
        "Channel_Delays": ("channel_delay", [[40, 41, 42, 43], [44, 45, 46, 47]]),
        "Gain_Settings": ("gain_setting", [[50, 51, 52, 53], [54, 55, 56, 57]]),
        "Gain_Codes": ("gain_code", [[60, 61, 62, 63], [64, 65, 66, 67]]),
    }
    before, header = raw_path.read_text().rsplit("Location ", 1)
    for key, (_, value) in lines.items():
        words = np.ravel(value)
        shown = f"{value:010d}" if key == "EXE_Build_ID" else "  ".join(str(word) for word in words)
        header, count = re.subn(rf"(?m)^{re.escape(key)} *: .*$", f"{key:18}: {shown}", header)
        assert count == 1, key
    (tmp_path / "RD-004568.dat").write_text(before + "Location " + header)
    bpm = butngain.read_raw(tmp_path / "RD-004568.dat")["13W"]
    cards = [1, 2, 0, 3]
    for key, (name, value) in lines.items():
        if isinstance(value, list) and len(np.ravel(value)) > 2:
            value = np.array(value)[..., cards]
        np.testing.assert_array_equal(getattr(bpm, name), value, err_msg=key)

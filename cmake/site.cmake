# Site paths: may begin with $KOVR_ONLINE, which is expanded when the program runs.
set(KOVR_FAKE_DATA_DIR "." CACHE STRING "Base directory of the synthetic series")
set(KOVR_RAW_ONLINE_DIR "$KOVR_ONLINE/kbpmII/raw/" CACHE STRING "Raw data files")
set(KOVR_RAW_OFFLINE_DIR "" CACHE STRING
  "Offline archive of raw data files; empty: the online path with its last 'online' made 'offline'")
set(KOVR_TSHARC_RAW_DIR "$KOVR_ONLINE/archive/tsharc/raw/" CACHE STRING "Newer text archive")
set(KOVR_SHARC_RAW_DIR "$KOVR_ONLINE/archive/sharc/raw/" CACHE STRING "Older text archive")
set(KOVR_ORBIT_DIR "$KOVR_ONLINE/machine_data/orbit/" CACHE STRING "Orbit button files")
set(KOVR_RUN_INDEX "$KOVR_ONLINE/machine_data/meas/run_index/tbt.idx" CACHE STRING
  "Run-number index")

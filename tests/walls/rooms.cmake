# The walls of the house, one row each.
#   wall(ROOM OWNER HEADER)  ROOM must not be able to include HEADER, which OWNER holds
#   door(ROOM HEADER)        ROOM may include HEADER: what the same compiler says yes to
#   shut(ROOM HEADER)        ROOM finds HEADER on the system's path, but it does not compile there
#   blind(ROOM HEADER)       no source of ROOM comes to HEADER through any other
#   sees(ROOM HEADER)        some source of ROOM does: the check of `blind` itself
# ROOM and OWNER are targets. Every room that has a wall has a door.

# util, storey by storey.
door(butngain_base bounded.hpp)
wall(butngain_base butngain_units file_units.hpp)
wall(butngain_base butngain_terminal terminal.hpp)
door(butngain_units file_units.hpp)
wall(butngain_units butngain_terminal terminal.hpp)
wall(butngain_units butngain_terminal progress.hpp)

# A program that reads raw files with the library, and nothing else.
door(rawfile_user kbpm_rawfile.hpp)
foreach(header terminal.hpp line_editor.hpp progress.hpp interrupt.hpp)
  wall(rawfile_user butngain_terminal ${header})
endforeach()
wall(rawfile_user butngain_units file_units.hpp)
# The same with data sets: how far a load is may be seen where somebody shows it, and nowhere else.
door(tbt_user tbt_mod.hpp)
wall(tbt_user butngain_terminal terminal.hpp)
wall(tbt_user butngain_terminal progress.hpp)
wall(butngain_tbt butngain_terminal progress.hpp)

# Plots: who draws sees one header; input and output do not draw.
door(butngain_driver quick_plot.hpp)
foreach(header plot_page.hpp page_pen.hpp page_file.hpp screen_window.hpp)
  wall(butngain_driver butngain_plot_interior ${header})
endforeach()
door(butngain_input get_fake_data.hpp)
door(butngain_output rd_files.hpp)
wall(butngain_input butngain_plot quick_plot.hpp)
wall(butngain_output butngain_plot quick_plot.hpp)

# Tables: the data set asks for positions and does not see how they come about.
door(butngain_tbt nonlin_bpm_mod.hpp)
wall(butngain_tbt butngain_nonlin_bpm_interior calib_files.hpp)
wall(butngain_tbt butngain_linear_algebra linear_algebra.hpp)
wall(butngain_input butngain_nonlin_bpm nonlin_bpm_mod.hpp)

# Chambers: who wants a table or signals does not see how a wall is solved. The solver stands below
# sessions and simulator and knows of neither.
door(butngain_driver table_maker.hpp)
door(butngain_sim_physics wall_field.hpp)
foreach(room butngain_driver butngain_sim_physics butngain_sim_tables)
  wall(${room} butngain_chamber_interior wall_solver.hpp)
  wall(${room} butngain_nonlin_bpm_interior calib_files.hpp)
endforeach()
door(butngain_sim_tables table_maker.hpp)
door(butngain_chamber table_cells.hpp)
wall(butngain_chamber butngain_sim_physics beam.hpp)
wall(butngain_chamber butngain_terminal terminal.hpp)
wall(butngain_chamber butngain_calibration calibration.hpp)

# The store keeps orbits and opens no file.
door(butngain_store orbit_store.hpp)
wall(butngain_store butngain_units file_units.hpp)

# The solver fits anything; it knows of no BPM and no file. The model knows neither solver nor
# session, and output shows what a fit left without seeing how it was found.
door(butngain_solver mrqmin.hpp)
wall(butngain_solver butngain_model gain_model.hpp)
wall(butngain_solver butngain_fit_context gain_fit_mod.hpp)
wall(butngain_solver butngain_four_fits four_fits.hpp)
wall(butngain_solver butngain_store orbit_store.hpp)
wall(butngain_solver butngain_units file_units.hpp)
wall(butngain_solver butngain_terminal terminal.hpp)
wall(butngain_output butngain_solver mrqmin.hpp)
wall(butngain_input butngain_solver mrqmin.hpp)
door(butngain_model gain_model.hpp)
wall(butngain_model butngain_fit_context gain_fit_mod.hpp)
wall(butngain_model butngain_solver mrqmin.hpp)
wall(butngain_model butngain_store orbit_store.hpp)
door(butngain_four_fits four_fits.hpp)
wall(butngain_four_fits butngain_fit_context gain_fit_mod.hpp)
door(butngain_bpm_result fit_quality.hpp)
wall(butngain_bpm_result butngain_fit_context gain_fit_mod.hpp)

# The calibration works on a table and readings.
door(butngain_calibration lookup_table.hpp)
wall(butngain_calibration butngain_fit_context gain_fit_mod.hpp)
wall(butngain_calibration butngain_nonlin_bpm_interior calib_files.hpp)
wall(butngain_calibration butngain_terminal terminal.hpp)

# One physical model of the machine, whoever asks it: no files, no command line.
door(butngain_sim_physics machine.hpp)
wall(butngain_sim_physics butngain_sim series.hpp)
wall(butngain_sim_physics bpmsim machine_options.hpp)
wall(butngain_sim bpmsim machine_options.hpp)
wall(butngain_sim butngain_terminal terminal.hpp)
wall(butngain_sim_tables butngain_terminal progress.hpp)
door(butngain_sim series.hpp)
shut(butngain_sim_physics CLI/CLI.hpp)

# The variables of the fit in progress (gain_fit_mod: orbit_data, norbits, dets, nvar, ...) are the
# session's. The described faces see them; what works on records must not come to them.
sees(butngain_fit gain_fit_mod.hpp)
foreach(room solver model four_fits bpm_result calibration readers)
  blind(butngain_${room} gain_fit_mod.hpp)
endforeach()

# Raw files: a face, and an interior for the library alone. Whoever takes a data set sees neither.
door(butngain_rawfile kbpm_rawfile.hpp)
door(butngain_tbt kbpm_rawfile.hpp)
door(butngain_input tbt_mod.hpp)
door(kbpm_dump raw_file.hpp)
foreach(room butngain_driver butngain_input butngain_tbt kbpm_dump)
  foreach(header array_arena.hpp data_block.hpp data_line.hpp field_tables.hpp held_file.hpp
      kbpmfio_stream.hpp raw_load.hpp rawfile_place.hpp tell.hpp)
    wall(${room} butngain_rawfile_interior ${header})
  endforeach()
endforeach()
foreach(header kbpm_rawfile.hpp kbpm_read_rawfile.hpp kbpmfio.hpp raw_file.hpp rdv3.hpp)
  wall(butngain_input butngain_rawfile ${header})
  wall(butngain_driver butngain_rawfile ${header})
endforeach()

# Readers give back records: they know neither the session nor the dialog. Dialogs put data into the
# session and know nothing of fits.
door(butngain_readers turn_data.hpp)
wall(butngain_readers butngain_fit_context gain_fit_mod.hpp)
wall(butngain_readers butngain_terminal terminal.hpp)
wall(butngain_readers butngain_input note.hpp)
wall(butngain_readers butngain_expert multipliers.hpp)
wall(butngain_input butngain_four_fits four_fits.hpp)

# The report shows records: who writes pages sees neither fit nor calibration, and who fits draws none.
door(butngain_driver report_page.hpp)
wall(butngain_driver butngain_page_interior overview.hpp)
wall(butngain_driver butngain_chart canvas.hpp)
door(butngain_page run_results.hpp)
wall(butngain_page butngain_calibration calibration.hpp)
wall(butngain_page butngain_plot quick_plot.hpp)
door(butngain_compare gains_csv.hpp)
wall(butngain_compare butngain_page_interior overview.hpp)
# Trends stand on rows that were read back; what searches them draws nothing.
door(butngain_trend trend_command.hpp)
door(butngain_trend_search gains_csv.hpp)
wall(butngain_trend butngain_page_interior overview.hpp)
wall(butngain_trend_search butngain_chart canvas.hpp)
wall(butngain_driver butngain_trend_search bpm_trend.hpp)
foreach(room page compare chart report_files trend trend_search)
  blind(butngain_${room} gain_fit_mod.hpp)
endforeach()

# What is made of a run stands on its rows alone.
door(butngain_report_files run_results.hpp)
wall(butngain_report_files butngain_fit_context gain_fit_mod.hpp)
wall(butngain_report_files butngain_calibration calibration.hpp)
wall(butngain_report_files butngain_driver session_state.hpp)
wall(butngain_report_files butngain_terminal terminal.hpp)

# Many runs are sessions of other processes: who starts them sees none.
door(butngain_many many_command.hpp)
door(butngain_many run_json.hpp)
wall(butngain_many butngain_driver session.hpp)
wall(butngain_many butngain_driver command_line.hpp)
wall(butngain_many butngain_calibration calibration.hpp)
wall(butngain_many butngain_page_interior overview.hpp)
blind(butngain_many gain_fit_mod.hpp)

# The library: work on records for other programs. Who uses it sees its own headers alone.
door(butngain_library four_fits.hpp)
wall(butngain_library butngain_terminal terminal.hpp)
wall(butngain_library butngain_tbt tbt_mod.hpp)
wall(butngain_library butngain_sim series.hpp)
wall(butngain_library butngain_fit_context gain_fit_mod.hpp)
blind(butngain_library gain_fit_mod.hpp)
if(TARGET butngain_python)
  door(butngain_python butngain/butngain.hpp)
  wall(butngain_python butngain_library four_fits.hpp)
  wall(butngain_python butngain_library fault.hpp)
  wall(butngain_python butngain_rawfile rdv3.hpp)
endif()

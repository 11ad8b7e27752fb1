// The context of a session's fits: the process-wide variables of gain_fit_mod, one room.
//
// The session, its readers and its writers meet here. Procedures that do work do not know this
// room: they take records and give records back, and the faces that stand on it (fit_gains.hpp,
// model_faces.hpp) hand the one to the other.
#pragma once
#include "bounded.hpp"
#include "gain_model.hpp"
#include "orbit_store.hpp"
#include "text.hpp"

namespace gain_fit_mod {

// Each with: what it is; who sets it; who reads it; when it is valid.

// All readings. Set by the readers, positions by the BPM loop, which also moves the orbits of a BPM
// together. Read by fit and writers. Valid from the first data set on; orbits 1..norbits count.
inline store::orbit_store orbit_data{"orbit_data"};

// Orbits held: of the data set just read, then of the BPM in work (1..3000). Set by the readers and
// by the BPM loop. Read by the dialog and the BPM loop.
inline int norbits = 0;

// BPM in work, 0..5000; -1 means all. Set by the readers (the last BPM they met), the BPM question
// and the BPM loop. Read by the BPM loop and the faces of the fit.
inline int bpm = -1;

// BPM indices that the data hold, zeros behind them. Set by the readers. Read by the BPM question.
inline util::bounded<int, 1, 5000, "dets"> dets{};

// Names by BPM index. Set by the readers. Read by the BPM loop and the session's summary.
inline util::bounded<util::fixed_text<16>, 0, 5000, "bpm_names"> bpm_names{};

// Gains (multipliers) of the BPM in work, by button [-]: the last line's true gains while a
// synthetic series is read; before a fit its start values, after it the fourth fit's. Set by the
// synthetic reader, the BPM loop and leave_in_context. Read by the faces of the model.
inline gains gain{};

// Am, k, h2, h3 of the last fit made [-]. Set by leave_in_context. Read by the faces of the model.
inline coefficient_set coefficients{};

// Amplitude of the last fit made; 0 before the first. Set by leave_in_context. Read by the BPM loop
// for the raw-data file, which is made before the fit and so shows that of the BPM before.
inline double const_ = 0;

// Not used; a member of the context all the same.
inline double intercept = 0;

// Weight of the gain-normalisation penalty in chi. Set to 0 by the session. Read by chi.
inline double weight = 0;

// Multipliers of single buttons by BPM [-]. Set and read by the expert's question for them.
inline util::bounded2<double, 1, 4, 0, 5000, "arb_gain"> arb_gain{};

// Corrections that the data carry: 1 none, 2 pedestal, 3 gain and pedestal; 0 for synthetic data.
// Set by the turn-by-turn dialog. Read by the session.
inline int gain_correct = 0;

// Whether the pedestals of the data set just read were subtracted, by its correction or with an empty
// bunch. Set by the readers and the turn-by-turn dialog. Read by the session, for the calibration.
inline bool pedestals_subtracted = false;

// Gain coefficients of the electronics that the data set just read names, by button and BPM [-]; 0
// where it names none. Set by the turn-by-turn dialog and the reader of raw data. Read by the session,
// for what is to be loaded.
inline util::bounded2<double, 1, 4, 0, 5000, "gain_coefficient"> gain_coefficient{};

// Run of the last data set. Set by the turn-by-turn dialog.
inline int rd_number = 0;

// Current data file with its directory, and the name of the last data set, which names summaries
// and plot copies. Set by the dialogs. Read by readers, BPM loop and plot.
inline util::fixed_text<100> in_file;
inline util::fixed_text<100> in_file_0;

// Expert mode; no dialog ever sets it. Read wherever an expert would be asked.
inline bool expert = false;

// Of the fit in work: model parameters (8), the gain held (1..4; 5 after the table of fits was
// written), data points (norbits). Set by leave_in_context and write_rd_err. Read by mrqmin_funcs1.
inline int nvar = 0;
inline int ind = 0;
inline int nterms = 0;

// The reading and the derivatives of the data point before. Set and read by mrqmin_funcs1: a data
// point beyond norbits repeats them.
inline signals last_reading{};
inline derivatives last_derivatives{};

/// Puts every variable above back to its first value. For tests: a session never starts twice.
void reset();

}  // namespace gain_fit_mod

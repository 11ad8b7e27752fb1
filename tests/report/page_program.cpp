// page_program KIND BPMS ORBITS DIRECTORY: the report of a made run, for people to look at.
#include <fmt/format.h>

#include <cstdlib>
#include <string>

#include "made_results.hpp"
#include "report_page.hpp"

int main(int count, char** arguments) {
  if (count != 5) return 2;
  const std::string directory = arguments[4];
  const auto run = made::results(arguments[1], std::atoi(arguments[2]), std::atoi(arguments[3]));
  for (const auto& trouble :
       {report::write_report_html(directory + "/report.html", run),
        report::write_gains_png(directory + "/gains.png", run),
        report::write_gains_pdf(directory + "/gains.pdf", run, report::paper::a4)}) {
    if (!trouble) continue;
    fmt::print(stderr, "{}\n", util::line_of(*trouble));
    return 1;
  }
  fmt::print("{}\n", report::first_sentence(run));
  return 0;
}

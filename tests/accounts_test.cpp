// The accounts of a run against its source: a small source built row by row,
// where every figure is known, converted and reconciled; and the generated
// sample, whose reconciliation leaves nothing unexplained.
#include "tools/run-report/accounting.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <sstream>

#include "support/fixture.h"
#include "tools/run-report/run_record.h"

namespace {

namespace fs = std::filesystem;
using host::Date;
using host::Value;
using runreport::CategoryAccount;
using runreport::Reconciliation;

// The accounts in a few lines, for a failing expectation to show.
std::string Describe(const Reconciliation& r) {
  std::ostringstream out;
  if (!r.done) out << "not done: " << r.why_not << "\n";
  for (const CategoryAccount& c : r.categories) {
    out << c.keyword << ": rows " << c.source_rows << ", unexplained " << c.unexplained << "\n";
    for (const auto& s : c.stores) out << "  store " << s.store << " " << s.arrived << "/" << s.expected << "\n";
    for (const auto& l : c.left_out) out << "  left out " << l.rows << " " << l.text << "\n";
    for (const auto& l : c.not_arrived) out << "  not arrived " << l.rows << " " << l.text << "\n";
    for (const auto& l : c.failures) out << "  ends " << l.rows << " " << l.text << "\n";
    for (size_t line : c.unforeseen_lines) out << "  unforeseen line " << line << "\n";
  }
  for (const auto& u : r.undecoded) out << "undecoded: line " << u.patient_line << " " << u.keyword << " '" << u.title
                                        << "' " << u.why << "\n";
  return out.str();
}

class SampleAccounts : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new fixture::TempDir();
    sample::SampleOptions options;
    options.patients = 200;
    sample::GenerateSample((folder_->path() / "src").string(), options);
    fixture::Run run = fixture::Convert((folder_->path() / "src" / "GX_USER.FDB").string());
    run_ = new runreport::RunRecord(runreport::ReadRun(run.archive));
  }
  static void TearDownTestSuite() {
    delete run_;
    delete folder_;
  }
  static fixture::TempDir* folder_;
  static runreport::RunRecord* run_;
};
fixture::TempDir* SampleAccounts::folder_ = nullptr;
runreport::RunRecord* SampleAccounts::run_ = nullptr;

TEST_F(SampleAccounts, EveryDifferenceHasItsCause) {
  const Reconciliation r = runreport::Reconcile(*run_);
  ASSERT_TRUE(r.done) << r.why_not;
  EXPECT_EQ(r.unexplained, 0) << Describe(r);
  std::cout << Describe(r);
}

}  // namespace

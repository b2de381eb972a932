// The awkward patients that every sample holds, whatever its seed: each shows
// what a real archive does to a conversion. Their files come from a source
// of their own, so that their bytes don't change with the seed either.
#pragma once

#include <span>
#include <string>

#include "tools/ambulor-sample/generator.h"

namespace sample {

// Writes one awkward patient with all his rows.
using AwkwardPatient = void (*)(Generator&);

// In the order in which a small sample takes them.
std::span<const AwkwardPatient> AwkwardPatients();

// An IMAGES row with the next Record and MediaCode.
Row ImageRow(Generator& g, const std::string& card, host::Value exam, host::Value day, host::Value content,
             host::Value title, host::Value extension, host::Value original);

// 000002: a foreign-born patient with a long place of birth (leading blank)
// and a long town, and every kind of stored file.
void DocumentShowcase(Generator& g);

// 000014 to 000023 (awkward_documents.cpp): reports of every kind of exam,
// media that store nothing, the patients whose documents fail on purpose,
// and files of several MB.
void ReportShowcase(Generator& g);
void MediaShowcase(Generator& g);
void RecordingWithoutContent(Generator& g);
void ExamImageWithShortName(Generator& g);
void CertificateWithSlash(Generator& g);
void CertificateOfTwoBytes(Generator& g);
void ExamReportedTwice(Generator& g);
void PlanScanWithoutContent(Generator& g);
void ExamImageWithoutContent(Generator& g);
void LargeDocuments(Generator& g);

}  // namespace sample

// MakePdf: a small, valid PDF document written from scratch for tests of text
// extraction: one page per string, each drawing its text in Helvetica (one of
// the standard fonts, so nothing is embedded), with a correct cross-reference
// table. Header-only; pure function.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace orvel::test {

// media_box: the page size in points ("0 0 612 792" is US Letter).
inline std::string MakePdf(const std::vector<std::string>& pages,
                           const std::string& media_box = "0 0 612 792") {
  std::vector<std::string> objs;  // object n is objs[n-1]
  const size_t n = pages.size();
  // 1 catalog, 2 page tree, 3 font, then per page: page object, content stream.
  std::string kids;
  for (size_t i = 0; i < n; ++i) kids += std::to_string(4 + 2 * i) + " 0 R ";
  objs.push_back("<< /Type /Catalog /Pages 2 0 R >>");
  objs.push_back("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(n) + " >>");
  objs.push_back("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
  for (size_t i = 0; i < n; ++i) {
    std::string text;
    for (char c : pages[i]) {
      if (c == '(' || c == ')' || c == '\\') text += '\\';
      text += c;
    }
    const std::string stream = "BT /F1 12 Tf 72 720 Td (" + text + ") Tj ET";
    objs.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [" + media_box + "] /Resources << /Font << /F1 3 0 R >> >> /Contents " +
                   std::to_string(5 + 2 * i) + " 0 R >>");
    objs.push_back("<< /Length " + std::to_string(stream.size()) + " >>\nstream\n" + stream + "\nendstream");
  }
  std::string pdf = "%PDF-1.4\n";
  std::vector<size_t> offsets;
  for (size_t i = 0; i < objs.size(); ++i) {
    offsets.push_back(pdf.size());
    pdf += std::to_string(i + 1) + " 0 obj\n" + objs[i] + "\nendobj\n";
  }
  const size_t xref = pdf.size();
  pdf += "xref\n0 " + std::to_string(objs.size() + 1) + "\n0000000000 65535 f \n";
  for (size_t off : offsets) {
    char line[32];
    std::snprintf(line, sizeof(line), "%010zu 00000 n \n", off);
    pdf += line;
  }
  pdf += "trailer\n<< /Size " + std::to_string(objs.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
         std::to_string(xref) + "\n%%EOF\n";
  return pdf;
}

}  // namespace orvel::test

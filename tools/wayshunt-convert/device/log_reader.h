// The conversion log read back: its text split into records (a record runs
// from its "function():line " prefix to the next prefix, so a record the
// library wrote without a line feed is parted from the one it runs into),
// and each error record matched to its meaning and the operator's next step.
// The table of error records is the one source of the operator guide's table
// ('log --table' prints it as the guide shows it).
#ifndef TOOLS_WAYSHUNT_CONVERT_LOG_READER_H
#define TOOLS_WAYSHUNT_CONVERT_LOG_READER_H

#include <string>
#include <vector>

namespace wsc {

struct LogRecord {
  std::string function;
  unsigned line = 0;
  std::string text;  // after the prefix, as written (line feeds included)
};

// What an error record means. closing: the record that ends every
// conversion that wrote to the log, which tells of no failure.
struct ErrorRecordKind {
  const char *function;
  const char *message;  // the text after the prefix, with %s and %d
  const char *meaning;
  const char *next_step;
  bool closing;
};

const std::vector<ErrorRecordKind> &error_record_kinds();

// The records of a log's text. Throws ToolError (naming source) when the
// text does not begin with a record: it is no conversion log. An empty text
// has no record.
std::vector<LogRecord> split_log(const std::string &text, const std::string &source);

// The kind of an error record, or null for a debug trace.
const ErrorRecordKind *error_kind(const LogRecord &r);

// The table of error records in Markdown, as the operator guide holds it.
std::string error_table_markdown();

}  // namespace wsc

#endif

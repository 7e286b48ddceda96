# Writes the manual pages of wayshunt-convert from its own help texts: one
# page for the tool (section 1) and one per command, named
# wayshunt-convert-<command>.1, into OUT_DIR. The commands are read from the
# tool's --help, so a new command gets its page without an edit here.
#   cmake -DTOOL=<wayshunt-convert> -DOUT_DIR=<dir> -P manpages.cmake

# Text made safe for roff: backslashes doubled, a leading '.' or ''' escaped.
function(roff_text text out)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

function(write_page name summary help)
  roff_text("${help}" body)
  string(TOUPPER "${name}" title)
  file(WRITE "${OUT_DIR}/${name}.1"
       ".TH \"${title}\" 1 \"\" \"wayshunt-convert\" \"User Commands\"\n"
       ".SH NAME\n${name} \\- ${summary}\n"
       ".SH DESCRIPTION\n.nf\n${body}\n.fi\n"
       ".SH SEE ALSO\nwayshunt-convert(1); docs/operator-guide.md of the source tree\n")
endfunction()

execute_process(COMMAND "${TOOL}" --help OUTPUT_VARIABLE top RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${TOOL} --help failed: ${rc}")
endif()
file(MAKE_DIRECTORY "${OUT_DIR}")
write_page(wayshunt-convert "run and inspect release moves of the wayshunt runtime store" "${top}")

# The SUBCOMMANDS section: "  <name>   <summary>" lines up to a blank line.
string(REGEX MATCH "Subcommands:\n(([ ]+[a-z]+[^\n]*\n)+)" section "${top}")
string(REGEX MATCHALL "\n?  [ ]*[a-z]+[^\n]*" lines "${CMAKE_MATCH_1}")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^\n?[ ]+([a-z]+)[ ]+(.*)$" _ "${line}")
  set(cmd "${CMAKE_MATCH_1}")
  set(summary "${CMAKE_MATCH_2}")
  execute_process(COMMAND "${TOOL}" ${cmd} --help OUTPUT_VARIABLE help)
  write_page(wayshunt-convert-${cmd} "${summary}" "${help}")
endforeach()

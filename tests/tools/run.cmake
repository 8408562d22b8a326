# Helpers of the zelto scripts: run the tool in ${WORK} and look for text in what it printed.

# Runs `${ZELTO} ARGN` in ${WORK}, fails unless it exits with expect_rc; its output goes to `out`.
function(run expect_rc)
  execute_process(COMMAND ${ZELTO} ${ARGN} WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc
                  OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL expect_rc)
    message(FATAL_ERROR "zelto ${ARGN}: exit code ${rc}\n${out}${err}")
  endif()
  set(out "${out}${err}" PARENT_SCOPE)
endfunction()

function(expect text)
  string(FIND "${out}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "missing '${text}' in:\n${out}")
  endif()
endfunction()

function(expect_not text)
  string(FIND "${out}" "${text}" at)
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "unexpected '${text}' in:\n${out}")
  endif()
endfunction()

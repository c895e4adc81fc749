# The C and C++ programs in README.md: extracted at configure time (an edit of the README
# reconfigures), built against the shared library like any consumer, and run by the test
# kelo_readme_snippets against a kelo-emulator process of their own (127.0.0.211), from the
# source folder so that their relative database paths resolve.
set(readme ${PROJECT_SOURCE_DIR}/README.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${readme})
file(READ ${readme} rest)

set(fence "\n```")
set(programs)
set(count 0)
while(TRUE)
  # Opening fence and its info string.
  string(FIND "${rest}" "${fence}" open)
  if(open EQUAL -1)
    break()
  endif()
  math(EXPR open "${open} + 4")
  string(SUBSTRING "${rest}" ${open} -1 rest)
  string(FIND "${rest}" "\n" eol)
  string(SUBSTRING "${rest}" 0 ${eol} language)
  math(EXPR eol "${eol} + 1")
  string(SUBSTRING "${rest}" ${eol} -1 rest)
  # Body up to the closing fence.
  string(FIND "${rest}" "${fence}" close)
  if(close EQUAL -1)
    message(FATAL_ERROR "README.md: a code block is not closed")
  endif()
  string(SUBSTRING "${rest}" 0 ${close} code)
  math(EXPR close "${close} + 4")
  string(SUBSTRING "${rest}" ${close} -1 rest)

  if(language STREQUAL "c" OR language STREQUAL "cpp")
    math(EXPR count "${count} + 1")
    set(source ${CMAKE_CURRENT_BINARY_DIR}/readme/snippet_${count}.${language})
    # Written through a scratch file so that an unchanged snippet is not rebuilt.
    file(WRITE ${source}.new "${code}\n")
    configure_file(${source}.new ${source} COPYONLY)
    set(target kelo_readme_snippet_${count})
    add_executable(${target} ${source})
    target_link_libraries(${target} PRIVATE kelocomm)
    set_target_properties(${target} PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF)
    list(APPEND programs $<TARGET_FILE:${target}>)
  endif()
endwhile()
if(count EQUAL 0)
  message(FATAL_ERROR "README.md holds no C or C++ program to test")
endif()

add_test(NAME kelo_readme_snippets
  COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/run_examples.sh $<TARGET_FILE:kelo-emulator>
          127.0.0.211 ${programs}
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
set_tests_properties(kelo_readme_snippets PROPERTIES LABELS fast TIMEOUT 120)

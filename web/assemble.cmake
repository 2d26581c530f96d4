# Makes PAGE of index.html: one file with all that it needs, so that it works from any server, from disk and offline.
# FOLDERS are searched for the files that its marks {{name}} name; ENGINE is the module, CALL the folder of the built-in call.

function(base64 result file)
  execute_process(COMMAND base64 -w 0 ${file} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# gzip without a name or time in it: the same page from the same sources.
execute_process(COMMAND gzip -9 -n -c ${ENGINE} OUTPUT_FILE ${PAGE}.engine.gz COMMAND_ERROR_IS_FATAL ANY)
base64(engine ${PAGE}.engine.gz)
base64(call-mic ${CALL}/mic.flac)
base64(call-ref ${CALL}/ref.flac)

# The page with its marks replaced by variables of their names, else by files.
function(assemble result)
  list(GET FOLDERS 0 first)
  file(READ ${first}/index.html rest)
  set(filled "")
  while(rest MATCHES "{{([^}]+)}}")
    set(mark ${CMAKE_MATCH_1})
    string(FIND "${rest}" "{{${mark}}}" place)
    string(SUBSTRING "${rest}" 0 ${place} before)
    if(DEFINED ${mark})
      set(content "${${mark}}")
    else()
      find_file(found ${mark} PATHS ${FOLDERS} NO_DEFAULT_PATH NO_CACHE REQUIRED)
      file(READ ${found} content)
      string(REGEX REPLACE "/[/*]# sourceMappingURL=[^\n]*" "" content "${content}") # maps of scripts stay out
      if(mark MATCHES "/") # licences; what else is asked for is markup itself
        string(REPLACE "&" "&amp;" content "${content}")
        string(REPLACE "<" "&lt;" content "${content}")
      endif()
      unset(found)
    endif()
    string(APPEND filled "${before}${content}")
    string(LENGTH "{{${mark}}}" length)
    math(EXPR place "${place} + ${length}")
    string(SUBSTRING "${rest}" ${place} -1 rest)
  endwhile()
  set(${result} "${filled}${rest}" PARENT_SCOPE)
endfunction()

assemble(text)
file(WRITE ${PAGE} "${text}")

# For pages that open it with a call of their own.
set(call-mic "")
set(call-ref "")
assemble(text)
string(REGEX REPLACE "\\.html$" "-without-call.html" without_call ${PAGE})
file(WRITE ${without_call} "${text}")
execute_process(COMMAND gzip -9 -n -c ${without_call} OUTPUT_FILE ${without_call}.gz COMMAND_ERROR_IS_FATAL ANY)

# Files that are compiled together, which takes a fraction of the time: most of it is spent on headers
# and on what they make of templates.

# names_of(RESULT FILE): what a file declares or defines at the beginning of a line, also in its unnamed
# namespaces, since only what is in braces of another kind is indented. Two files that share a name
# must not be compiled together. Names of tests are not looked at: GoogleTest tells when two are alike.
function(names_of result file)
    file(READ ${file} text)
    # Brackets and semicolons mean something in CMake's lists.
    string(REGEX REPLACE "[][;]" "=" text "\n${text}")
    string(REGEX REPLACE "\n(using|namespace|extern|template|TEST|TYPED_TEST|INSTANTIATE)[^\n]*" ""
           text "${text}")
    string(REGEX MATCHALL "\n(struct|class|enum|enum class) [A-Za-z_0-9]+|\n[A-Za-z][^\n(={/#]*[(={]"
           declarations "${text}")
    set(names)
    foreach(declaration IN LISTS declarations)
        string(REGEX MATCH "([A-Za-z_0-9:~]+)[^A-Za-z_0-9]*$" whole "${declaration}")
        list(APPEND names ${CMAKE_MATCH_1})
    endforeach()
    list(REMOVE_DUPLICATES names)
    set(${result} "${names}" PARENT_SCOPE)
endfunction()

# compile_in_batches(TARGET LARGEST FILE...): the files of a target, each in the first batch that has
# room for it and does not know its names.
function(compile_in_batches target largest)
    set(last -1)
    foreach(file IN LISTS ARGN)
        names_of(names ${file})
        set(batch 0)
        while(batch LESS_EQUAL last)
            set(both ${names_${batch}} ${names})
            list(LENGTH both all)
            list(REMOVE_DUPLICATES both)
            list(LENGTH both different)
            if(all EQUAL different AND count_${batch} LESS largest)
                break()
            endif()
            math(EXPR batch "${batch} + 1")
        endwhile()
        if(batch GREATER last)
            set(last ${batch})
            set(count_${batch} 0)
            set(names_${batch})
        endif()
        list(APPEND names_${batch} ${names})
        math(EXPR count_${batch} "${count_${batch}} + 1")
        set_source_files_properties(${file} PROPERTIES UNITY_GROUP ${target}_${batch})
    endforeach()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()

# The fuzz targets: NAME and what it is built of, sources of the project or libraries. fuzz/NAME.cpp is the target,
# fuzz/corpus/NAME its seeds.
set(PROCMGR_FUZZ_TARGETS
    "ss_change_request       procmgr_ss_server"
    "ss_verify_request       procmgr_ss_server"
    "ss_set_state_request    procmgr_ss_server"
    "ss_state_query          procmgr_ss_server"
    "ss_request              procmgr_ss_server"
    "pm_state_report         procmgr_pm_agent"
    "pm_state_answer         procmgr_pm_agent"
    "pm_call_result          procmgr_pm_agent"
    "pm_request              procmgr_pm_agent"
    "manifest                procmgr_manifest_check"
    "replacement_data        procmgr_posix_manifest"
    "pipe_frame              procmgr_posix_tunor"
    "bus_frame               procmgr_posix_vek"
    "bus_service             procmgr_posix_vek"
    "ss_client               procmgr_ss_static procmgr_posix_common"
    "pipe_server             procmgr_posix_tunor"
    "heartbeats              procmgr_posix_heartbeat"
    "app_output              procmgrd_launch"
    "saved_state             procmgrd_launch"
    "fields                  procmgr_common"
    "owner_protocol          daemons/procmgrd/owner_protocol.cpp procmgr_common"
    "app_notice              daemons/procmgrd/app_notice.cpp procmgr_common"
    "ssctl_answers           tools/ssctl/answers.cpp procmgr_common"
    "access_rules            procmgr_posix_common"
    "timeline_record         procmgr_posix_timeline")

# procmgr_fuzz_row(ROW NAME SOURCES LIBRARIES): takes a row of the table apart.
function(procmgr_fuzz_row row name sources libraries)
    separate_arguments(parts UNIX_COMMAND "${row}")
    list(POP_FRONT parts first)
    set(files ${PROJECT_SOURCE_DIR}/fuzz/${first}.cpp)
    set(others "")
    foreach(part IN LISTS parts)
        if(part MATCHES "\\.cpp$")
            list(APPEND files ${PROJECT_SOURCE_DIR}/${part})
        else()
            list(APPEND others ${part})
        endif()
    endforeach()
    set(${name} ${first} PARENT_SCOPE)
    set(${sources} "${files}" PARENT_SCOPE)
    set(${libraries} "${others}" PARENT_SCOPE)
endfunction()

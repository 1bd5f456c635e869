# Placeholder until the export list is written: everything marked R_EXPORT leaves the library.
function(rv_exports target)
endfunction()

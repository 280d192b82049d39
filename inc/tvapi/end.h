/* Closes what "tvapi/begin.h" opened. */
#ifdef TVAPI_FN_IS_PROTOTYPE
#undef TVAPI_FN
#undef TVAPI_FN_IS_PROTOTYPE
#endif
#ifdef TVAPI_CALLBACK_IS_TYPE
#undef TVAPI_CALLBACK
#undef TVAPI_CALLBACK_IS_TYPE
#endif
#ifdef TVAPI_RECORD_IS_NOTHING
#undef TVAPI_RECORD
#undef TVAPI_UNION
#undef TVAPI_ITEM
#undef TVAPI_RECORD_IS_NOTHING
#endif

#ifdef __cplusplus
}
#endif

log_name=harbor-arrivals.log

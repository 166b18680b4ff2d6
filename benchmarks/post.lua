wrk.method, wrk.body = "POST", ("x"):rep(1000)

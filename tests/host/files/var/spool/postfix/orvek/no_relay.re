/^192\.0\.2\.66$/ REJECT relaying denied

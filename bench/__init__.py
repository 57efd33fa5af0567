"""What the project costs: bench/run asks the questions in bench/questions/ and writes the answers.

lane       one way from a client's wire to a server's, with a forwarder between that is measured
crowd      a switch with snoopd6 and 2,048 clients with leases
result     what a question comes to: spreads, tables as text and Markdown
svg        plots
questions/ one module each: TITLE, HOW, and answer(effort)
"""

"""vesk in Python: fit finite mixture models to a DataFrame with the vesk
program, read its result files, and plot the clusters.

    import vesk
    m = vesk.Mixture(n_classes=range(2, 7), answer="species").fit(df)
    m.n_classes_, m.labels_, m.scores_, m.params_, m.evaluation_
    m.predict_proba(new_df)
    m.plot_clusters()

The programs (vesk, vesk-prep) are found by vesk.find_programs()."""

from .mixture import FitFailed, Mixture
from .programs import ProgramsNotFound, find_programs
from .result import ResultFormatError, read_columns, read_result, read_sections

__all__ = ["Mixture", "FitFailed", "find_programs", "ProgramsNotFound", "read_result",
           "read_sections", "read_columns", "ResultFormatError"]
__version__ = "0.6"

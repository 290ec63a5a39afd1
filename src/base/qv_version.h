/**
 * @file qv_version.h
 * The version of the base layer, which the build reads from here as well.
 */
#ifndef QV_BASE_QV_VERSION_H
#define QV_BASE_QV_VERSION_H

#define QV_BASE_VERSION_MAJOR 1 /**< Grows when something that was promised changes. */
#define QV_BASE_VERSION_MINOR 0 /**< Grows when something is added. */
#define QV_BASE_VERSION_PATCH 0 /**< Grows when a fault is repaired. */

/** The version as one number that grows with it: 1.2.3 is 10203. */
#define QV_BASE_VERSION \
    (QV_BASE_VERSION_MAJOR * 10000L + QV_BASE_VERSION_MINOR * 100L + QV_BASE_VERSION_PATCH)

#endif /* QV_BASE_QV_VERSION_H */
